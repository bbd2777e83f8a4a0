// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Dot.h"

#include <QPainter>

namespace orvel {

Dot::Dot(Theme::Role role, QWidget* parent) : QWidget(parent), role_(role) {
    setFixedSize(size, size);
}

void Dot::setRole(Theme::Role role) {
    role_ = role;
    update();
}

void Dot::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Theme::color(role_, palette()));
    painter.drawEllipse(rect());
}

} // namespace orvel
