// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/MotionPreference.h"

#include <QBasicTimer>
#include <QWidget>

#include <memory>

namespace orvel {

/// Shows that something is under way. It turns while it can be seen, and costs nothing while it is
/// hidden or its window minimised; where nothing may move, it stands still.
class Spinner final : public QWidget {
    Q_OBJECT

public:
    /// The preference is borrowed.
    explicit Spinner(MotionPreference& motion, QWidget* parent = nullptr);

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

    MotionPreference& motion_;
    std::unique_ptr<Subscription> motionSubscription_;
    QBasicTimer timer_;
    int step_ = 0;
};

} // namespace orvel
