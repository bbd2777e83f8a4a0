// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "core/CancellationToken.h"
#include "platform/Clock.h"

#include <QCoroTask>
#include <QObject>

#include <optional>

namespace orvel {

/// Alternates between the brand image and the attention symbol. Main thread. Borrows the clock.
class AttentionFlash final : public QObject {
    Q_OBJECT

public:
    static constexpr tavrin::Seconds brandDuration{2.4};
    static constexpr tavrin::Seconds alertDuration{0.8};

    AttentionFlash(Clock& clock, Logger log);
    ~AttentionFlash() override;

    /// Starts with the brand image and ends with it.
    void setRunning(bool isRunning);

    /// Whether the attention symbol is shown.
    [[nodiscard]] bool isOn() const { return isOn_; }

Q_SIGNALS:
    void changed();

private:
    QCoro::Task<> flash(tavrin::CancellationToken cancellation);
    void setOn(bool isOn);

    Clock& clock_;
    const Logger log_;
    bool isOn_ = false;
    /// Cancels `flash_`. Empty while the flash is stopped.
    std::optional<tavrin::CancellationSource> running_;
    QCoro::Task<> flash_;
};

} // namespace orvel
