// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace orvel {

/// A thin horizontal line.
class Divider final : public QWidget {
    Q_OBJECT

public:
    explicit Divider(QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace orvel
