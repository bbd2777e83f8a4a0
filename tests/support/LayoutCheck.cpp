// SPDX-License-Identifier: Apache-2.0
#include "tests/support/LayoutCheck.h"

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QComboBox>
#include <QLabel>
#include <QWidget>

namespace orvel::test {

namespace {

QString describe(const QWidget& widget) {
    QString text;
    if (const auto* label = qobject_cast<const QLabel*>(&widget)) {
        text = label->text();
    } else if (const auto* button = qobject_cast<const QAbstractButton*>(&widget)) {
        text = button->text();
    }
    return QStringLiteral("%1 '%2' \"%3\" %4x%5")
        .arg(
            QString::fromLatin1(widget.metaObject()->className()),
            widget.objectName(),
            text.left(40))
        .arg(widget.width())
        .arg(widget.height());
}

/// Whether something would be missing from it at that size.
bool isCut(const QWidget& widget) {
    const auto* label = qobject_cast<const QLabel*>(&widget);
    const bool isControl = label != nullptr ||
                           qobject_cast<const QAbstractButton*>(&widget) != nullptr ||
                           qobject_cast<const QComboBox*>(&widget) != nullptr;
    if (!isControl) {
        return false;
    }
    if (widget.hasHeightForWidth()) {
        return widget.height() < widget.heightForWidth(widget.width()) ||
               widget.width() < widget.minimumSizeHint().width();
    }
    const QSize needed = label != nullptr ? widget.minimumSizeHint() : widget.sizeHint();
    return widget.width() < needed.width() || widget.height() < needed.height();
}

void collect(const QWidget& widget, QStringList& faults) {
    const auto children = widget.findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
    // What is further out can be scrolled to, and its scroll bars lie where they must.
    const bool scrolls = qobject_cast<const QAbstractScrollArea*>(widget.parentWidget()) != nullptr;
    const bool isScrollArea = qobject_cast<const QAbstractScrollArea*>(&widget) != nullptr;
    // The inner parts of a control are its own affair.
    if (qobject_cast<const QComboBox*>(&widget) != nullptr) {
        return;
    }
    for (int i = 0; i < children.size(); ++i) {
        const QWidget& child = *children[i];
        if (!child.isVisibleTo(&widget) || child.isWindow()) {
            continue;
        }
        if (isCut(child)) {
            faults << QStringLiteral("cut: ") + describe(child);
        }
        if (!isScrollArea && !scrolls && !widget.rect().contains(child.geometry())) {
            faults << QStringLiteral("reaches out: ") + describe(child);
        }
        for (int j = i + 1; j < children.size() && !isScrollArea; ++j) {
            const QWidget& sibling = *children[j];
            if (sibling.isVisibleTo(&widget) && !sibling.isWindow() &&
                child.geometry().intersects(sibling.geometry())) {
                faults << QStringLiteral("overlap: ") + describe(child) + QStringLiteral(" and ") +
                              describe(sibling);
            }
        }
        collect(child, faults);
    }
}

} // namespace

QStringList layoutFaults(const QWidget& window) {
    QStringList faults;
    collect(window, faults);
    return faults;
}

QStringList tabOrder(const QWidget& window) {
    QStringList names;
    const QWidget* widget = &window;
    do {
        const bool isReached = (widget->focusPolicy() & Qt::TabFocus) == Qt::TabFocus &&
                               widget->isEnabled() && widget->isVisibleTo(&window);
        if (isReached) {
            names << widget->objectName();
        }
        widget = widget->nextInFocusChain();
    } while (widget != &window);
    return names;
}

} // namespace orvel::test
