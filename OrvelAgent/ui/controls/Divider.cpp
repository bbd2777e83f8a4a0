// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Divider.h"

#include "OrvelAgent/ui/controls/Theme.h"

#include <QPainter>

namespace orvel {

Divider::Divider(QWidget* parent) : QWidget(parent) {
    setFixedHeight(Theme::hairline);
}

void Divider::paintEvent(QPaintEvent*) {
    QPainter(this).fillRect(rect(), Theme::borderColor(Theme::Surface::Card, palette()));
}

} // namespace orvel
