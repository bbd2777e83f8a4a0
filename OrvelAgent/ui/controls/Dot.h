// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QWidget>

namespace orvel {

/// A small filled circle. Show its meaning as text next to it.
class Dot final : public QWidget {
    Q_OBJECT

public:
    static constexpr int size = 7;

    explicit Dot(Theme::Role role, QWidget* parent = nullptr);

    void setRole(Theme::Role role);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Theme::Role role_;
};

} // namespace orvel
