// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/SelectableLabel.h"

#include <QApplication>
#include <QEvent>

namespace orvel {

SelectableLabel::SelectableLabel(
    Theme::TextStyle style, Theme::Role role, const QString& text, QWidget* parent)
    : QLabel(text, parent), style_(style), role_(role) {
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    updateStyle();
}

void SelectableLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    // This does not recurse: Qt sends no event for an unchanged font or palette.
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange ||
        event->type() == QEvent::LayoutDirectionChange) {
        updateStyle();
    }
}

void SelectableLabel::updateStyle() {
    setFont(Theme::font(style_));
    // Align with the window's direction, not with the direction of this text.
    if (!alignment().testFlag(Qt::AlignHCenter)) {
        const auto side = isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft;
        setAlignment(side | Qt::AlignAbsolute | Qt::AlignVCenter);
    }
    QPalette colors = palette();
    colors.setColor(QPalette::WindowText, Theme::color(role_, QApplication::palette()));
    if (colors != palette()) {
        setPalette(colors);
    }
}

} // namespace orvel
