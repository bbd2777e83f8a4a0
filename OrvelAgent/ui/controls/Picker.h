// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QComboBox>
#include <QWheelEvent>

namespace orvel {

/// Ignores the mouse wheel, so that scrolling past it does not change the choice.
class Picker final : public QComboBox {
    Q_OBJECT

public:
    using QComboBox::QComboBox;

protected:
    void wheelEvent(QWheelEvent* event) override { event->ignore(); }
};

} // namespace orvel
