// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Card.h"

#include <QPainter>
#include <QPen>

namespace orvel {

Card::Card(Theme::Surface surface, QWidget* parent) : QWidget(parent), surface_(surface) {
    setContentsMargins(
        Theme::cardPadding, Theme::cardPadding, Theme::cardPadding, Theme::cardPadding);
}

void Card::paintEvent(QPaintEvent* /*event*/) {
    constexpr double half = Theme::hairline / 2.0;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Theme::borderColor(surface_, palette()), Theme::hairline));
    painter.setBrush(Theme::color(surface_, palette()));
    painter.drawRoundedRect(
        QRectF(rect()).adjusted(half, half, -half, -half),
        Theme::cornerRadius,
        Theme::cornerRadius);
}

} // namespace orvel
