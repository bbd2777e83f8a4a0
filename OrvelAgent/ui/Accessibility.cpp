// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/Accessibility.h"

#include "OrvelAgent/ui/controls/Badge.h"
#include "OrvelAgent/ui/controls/Divider.h"
#include "OrvelAgent/ui/controls/Spinner.h"
#include "OrvelAgent/ui/controls/SymbolLabel.h"
#include "OrvelAgent/ui/log/LogWindow.h"
#include "OrvelAgent/ui/panel/BlockedBanner.h"
#include "OrvelAgent/ui/panel/MenuBarContentView.h"
#include "OrvelAgent/ui/panel/Prompt.h"
#include "OrvelAgent/ui/settings/SettingsView.h"
#include "OrvelAgent/ui/update/ChangeRow.h"
#include "OrvelAgent/ui/update/ReleaseSection.h"
#include "OrvelAgent/ui/update/VersionHistoryWindow.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QHash>

namespace orvel {

namespace {

QHash<QString, QAccessible::Role> makeRoles() {
    QHash<QString, QAccessible::Role> roles;
    const auto add = [&roles](const QMetaObject& type, QAccessible::Role role) {
        roles.insert(QLatin1String(type.className()), role);
    };
    add(LogWindow::staticMetaObject, QAccessible::Window);
    add(MenuBarContentView::staticMetaObject, QAccessible::Window);
    add(SettingsView::staticMetaObject, QAccessible::Window);
    add(VersionHistoryWindow::staticMetaObject, QAccessible::Window);
    add(Badge::staticMetaObject, QAccessible::StaticText);
    add(BlockedBanner::staticMetaObject, QAccessible::Notification);
    add(ChangeRow::staticMetaObject, QAccessible::Grouping);
    add(Divider::staticMetaObject, QAccessible::Separator);
    add(Prompt::staticMetaObject, QAccessible::Grouping);
    add(QScrollArea::staticMetaObject, QAccessible::Pane);
    add(ReleaseSection::staticMetaObject, QAccessible::Grouping);
    // Not a progress bar: screen readers would expect a value.
    add(Spinner::staticMetaObject, QAccessible::Animation);
    add(SymbolLabel::staticMetaObject, QAccessible::Graphic);
    return roles;
}

/// Qt calls this with the name of the object's class, then with the names of its base classes.
QAccessibleInterface* makeInterface(const QString& type, QObject* object) {
    static const QHash<QString, QAccessible::Role> roles = makeRoles();
    auto* const widget = qobject_cast<QWidget*>(object);
    if (widget == nullptr) {
        return nullptr;
    }
    const auto role = roles.find(type);
    return role == roles.end() ? nullptr : new QAccessibleWidget(widget, *role);
}

} // namespace

void installAccessibility() {
    QAccessible::installFactory(makeInterface);
}

} // namespace orvel
