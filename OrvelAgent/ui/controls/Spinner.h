// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QBasicTimer>
#include <QWidget>

namespace orvel {

/// Animates only while it is visible and its window is not minimised.
class Spinner final : public QWidget {
    Q_OBJECT

public:
    explicit Spinner(QWidget* parent = nullptr);

    /// Shows a static symbol instead.
    void setStill(bool isStill);

    [[nodiscard]] bool isTurning() const { return timer_.isActive(); }

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void updateTurning();

    bool isStill_ = false;
    QBasicTimer timer_;
    int step_ = 0;
};

} // namespace orvel
