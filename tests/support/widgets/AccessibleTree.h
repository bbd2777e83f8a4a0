// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAccessible>
#include <QWidget>

#include <algorithm>
#include <string>
#include <vector>

namespace orvel::test {

namespace detail {

inline std::string nameOf(QAccessibleInterface& node) {
    return node.text(QAccessible::Name).toStdString();
}

inline std::string describe(QAccessibleInterface& node) {
    const QObject* object = node.object();
    return std::string(object != nullptr ? object->metaObject()->className() : "item") + " " +
           (object != nullptr ? object->objectName().toStdString() : "") + " \"" + nameOf(node) +
           "\", " + qAccessibleRoleString(node.role());
}

/// Roles that a screen reader skips to read their children.
inline bool isGeneric(QAccessible::Role role) {
    return role == QAccessible::NoRole || role == QAccessible::Client;
}

/// A widget with a focus proxy passes the focus on.
inline bool takesFocus(QAccessibleInterface& node) {
    const auto* widget = qobject_cast<const QWidget*>(node.object());
    return node.state().focusable && (widget == nullptr || widget->focusProxy() == nullptr);
}

/// Roles that need a name even if they do not take the focus.
inline bool needsName(QAccessible::Role role) {
    switch (role) {
    case QAccessible::Window:
    case QAccessible::Dialog:
    case QAccessible::Grouping:
    case QAccessible::StaticText:
    case QAccessible::Animation:
    case QAccessible::ProgressBar:
    case QAccessible::PageTab:
        return true;
    default:
        return false;
    }
}

template <typename Visitor>
void visitShown(QAccessibleInterface* node, const Visitor& visit) {
    if (node == nullptr || node->state().invisible) {
        return;
    }
    visit(*node);
    for (int index = 0; index < node->childCount(); ++index) {
        visitShown(node->child(index), visit);
    }
}

} // namespace detail

/// Describes everything in the window that a screen reader could not present.
inline std::vector<std::string> accessibilityFaults(QWidget& window) {
    std::vector<std::string> faults;
    std::vector<const QObject*> reached;
    detail::visitShown(QAccessible::queryAccessibleInterface(&window), [&](auto& node) {
        reached.push_back(node.object());
        const bool takesFocus = detail::takesFocus(node);
        const bool hasName = !detail::nameOf(node).empty();
        if (detail::isGeneric(node.role()) && (takesFocus || hasName)) {
            faults.push_back(detail::describe(node) + ": is nothing in particular");
        }
        if (!hasName && (takesFocus || detail::needsName(node.role()))) {
            faults.push_back(detail::describe(node) + ": has no name");
        }
    });
    for (const QWidget* widget : window.findChildren<QWidget*>()) {
        const bool takesFocus =
            widget->focusPolicy() != Qt::NoFocus && widget->focusProxy() == nullptr;
        if (widget->isVisible() && takesFocus &&
            std::find(reached.begin(), reached.end(), widget) == reached.end()) {
            faults.push_back(widget->objectName().toStdString() + ": is not to be found");
        }
    }
    return faults;
}

} // namespace orvel::test
