// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>
#include <QWidget>

#include <string>
#include <vector>

namespace orvel::test {

namespace detail {

inline std::string nameOf(const QWidget& widget) {
    const auto* label = qobject_cast<const QLabel*>(&widget);
    const auto* button = qobject_cast<const QAbstractButton*>(&widget);
    const QString text = label ? label->text() : button ? button->text() : QString();
    return std::string(widget.metaObject()->className()) + " " + widget.objectName().toStdString() +
           " \"" + text.toStdString() + "\"";
}

inline bool hasRoom(const QWidget& widget) {
    if (const auto* label = qobject_cast<const QLabel*>(&widget);
        label != nullptr && label->hasHeightForWidth()) {
        return widget.height() >= widget.heightForWidth(widget.width()) &&
               widget.width() >= widget.minimumSizeHint().width();
    }
    if (qobject_cast<const QTextEdit*>(&widget) != nullptr) {
        return widget.height() >= widget.heightForWidth(widget.width());
    }
    // A label that elides its text needs less than its full width.
    const QSize needed = qobject_cast<const QLabel*>(&widget) != nullptr ? widget.minimumSizeHint()
                                                                         : widget.sizeHint();
    return widget.width() >= needed.width() && widget.height() >= needed.height();
}

/// The minimum space on each side of a button's text.
inline constexpr int roomBesideText = 7;

inline bool isTight(const QPushButton& button) {
    const int icon = button.icon().isNull() ? 0 : button.iconSize().width();
    const int text = button.fontMetrics().size(Qt::TextShowMnemonic, button.text()).width();
    return !button.isFlat() && button.width() < icon + text + 2 * roomBesideText;
}

} // namespace detail

/// Describes the visible texts and controls that are cut off or overlap others. Content in a scroll
/// area may extend beyond it.
inline std::vector<std::string> layoutFaults(const QWidget& window) {
    std::vector<std::string> faults;
    std::vector<const QWidget*> shown;
    for (const QWidget* widget : window.findChildren<QWidget*>()) {
        const bool isText = qobject_cast<const QLabel*>(widget) != nullptr ||
                            qobject_cast<const QAbstractButton*>(widget) != nullptr ||
                            qobject_cast<const QComboBox*>(widget) != nullptr ||
                            qobject_cast<const QTextEdit*>(widget) != nullptr;
        if (!isText || !widget->isVisible()) {
            continue;
        }
        shown.push_back(widget);
        if (!detail::hasRoom(*widget)) {
            faults.push_back(detail::nameOf(*widget) + " is cut");
        } else if (const auto* button = qobject_cast<const QPushButton*>(widget);
                   button != nullptr && detail::isTight(*button)) {
            faults.push_back(detail::nameOf(*widget) + " has no room beside its text");
        }
        const QWidget* parent = widget->parentWidget();
        if (parent != nullptr && !parent->rect().contains(widget->geometry())) {
            faults.push_back(detail::nameOf(*widget) + " stands out of its parent");
        }
    }
    for (std::size_t first = 0; first < shown.size(); ++first) {
        for (std::size_t second = first + 1; second < shown.size(); ++second) {
            const QWidget& one = *shown[first];
            const QWidget& other = *shown[second];
            const QRect oneRect(one.mapTo(&window, QPoint()), one.size());
            const QRect otherRect(other.mapTo(&window, QPoint()), other.size());
            if (oneRect.intersects(otherRect) && !one.isAncestorOf(&other) &&
                !other.isAncestorOf(&one)) {
                faults.push_back(detail::nameOf(one) + " lies over " + detail::nameOf(other));
            }
        }
    }
    return faults;
}

/// The object names of the controls that the Tab key reaches, in order.
inline std::vector<std::string> tabOrder(const QWidget& window) {
    std::vector<std::string> names;
    const QWidget* widget = &window;
    do {
        const bool takesTab = (widget->focusPolicy() & Qt::TabFocus) == Qt::TabFocus;
        if (takesTab && widget->isEnabled() && widget->isVisible()) {
            names.push_back(widget->objectName().toStdString());
        }
        widget = widget->nextInFocusChain();
    } while (widget != &window);
    return names;
}

} // namespace orvel::test
