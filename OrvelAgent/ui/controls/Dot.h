// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QPainter>
#include <QWidget>

namespace orvel {

/// A small filled circle. Show its meaning as text next to it.
class Dot final : public QWidget {
    Q_OBJECT

public:
    static constexpr int size = 7;

    explicit Dot(Theme::Role role) : role_(role) { setFixedSize(size, size); }

    void setRole(Theme::Role role) {
        role_ = role;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Theme::color(role_, palette()));
        painter.drawEllipse(rect());
    }

private:
    Theme::Role role_;
};

} // namespace orvel
