// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QPainter>
#include <QWidget>

namespace orvel {

/// A thin horizontal line.
class Divider final : public QWidget {
    Q_OBJECT

public:
    explicit Divider(QWidget* parent = nullptr) : QWidget(parent) {
        setFixedHeight(Theme::hairline);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter(this).fillRect(rect(), Theme::borderColor(Theme::Surface::Card, palette()));
    }
};

} // namespace orvel
