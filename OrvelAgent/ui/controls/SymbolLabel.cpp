// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/SymbolLabel.h"

#include <QPainter>

namespace orvel {

SymbolLabel::SymbolLabel(Symbol symbol, Theme::TextStyle style, Theme::Role role, QWidget* parent)
    : QLabel(parent), symbol_(symbol), style_(style), role_(role) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize SymbolLabel::sizeHint() const {
    const int side = Theme::symbolSize(style_);
    return {side, side};
}

void SymbolLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.drawPixmap(
        0, 0, symbolPixmap(symbol_, width(), Theme::color(role_, palette()), devicePixelRatioF()));
}

} // namespace orvel
