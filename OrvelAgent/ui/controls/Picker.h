// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QComboBox>

namespace orvel {

/// A list to choose from that scrolling past does not change: a choice is made on purpose.
class Picker final : public QComboBox {
    Q_OBJECT

public:
    using QComboBox::QComboBox;

protected:
    void wheelEvent(QWheelEvent* event) override;
};

} // namespace orvel
