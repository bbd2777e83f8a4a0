// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/TextButton.h"

#include <QEvent>
#include <QPainter>
#include <QStyleOptionFocusRect>

#include <algorithm>

namespace orvel {

namespace {

/// The smallest accessible pointer target, in pixels.
constexpr int minimumTargetSize = 24;

} // namespace

TextButton::TextButton(
    const QString& text, Theme::TextStyle style, Theme::Role role, QWidget* parent)
    : QPushButton(text, parent), style_(style), role_(role) {
    setFlat(true);
    setAutoDefault(false);
    setCursor(Qt::PointingHandCursor);
    setFont(Theme::font(style_));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize TextButton::sizeHint() const {
    const QSize needed = fontMetrics().size(Qt::TextShowMnemonic, text());
    return {
        std::max(minimumTargetSize, needed.width()), std::max(minimumTargetSize, needed.height())};
}

void TextButton::enterEvent(QEnterEvent* event) {
    setHovered(true);
    QPushButton::enterEvent(event);
}

void TextButton::leaveEvent(QEvent* event) {
    setHovered(false);
    QPushButton::leaveEvent(event);
}

void TextButton::hideEvent(QHideEvent* event) {
    // Qt sends no leave event when the window closes under the pointer.
    setHovered(false);
    QPushButton::hideEvent(event);
}

void TextButton::setHovered(bool isHovered) {
    isHovered_ = isHovered;
    update();
}

void TextButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    QFont shown = font();
    shown.setUnderline(isUnderlined());
    painter.setFont(shown);
    painter.setPen(Theme::color(
        isEnabled() ? (isDown() ? Theme::Role::Primary : role_) : Theme::Role::Secondary,
        palette()));
    painter.setLayoutDirection(text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    painter.drawText(rect(), int(Qt::AlignCenter) | int(Qt::TextShowMnemonic), text());
    QStyleOptionFocusRect focus;
    focus.initFrom(this);
    if (focus.state.testFlag(QStyle::State_HasFocus) &&
        focus.state.testFlag(QStyle::State_KeyboardFocusChange)) {
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, &painter, this);
    }
}

void TextButton::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) {
        setFont(Theme::font(style_));
    }
    QPushButton::changeEvent(event);
}

} // namespace orvel
