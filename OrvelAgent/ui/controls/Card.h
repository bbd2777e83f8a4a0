// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QWidget>

namespace orvel {

/// A block with its own background and border. Its layout needs no margins.
class Card : public QWidget {
    Q_OBJECT

public:
    explicit Card(Theme::Surface surface, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Theme::Surface surface_;
};

} // namespace orvel
