// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/AttentionFlash.h"

#include "OrvelAgent/base/Sleep.h"

#include <exception>
#include <utility>

namespace orvel {

AttentionFlash::AttentionFlash(Clock& clock, Logger log) : clock_(clock), log_(std::move(log)) {}

AttentionFlash::~AttentionFlash() {
    if (running_) {
        running_->cancel();
    }
}

void AttentionFlash::setRunning(bool isRunning) {
    if (isRunning && !running_) {
        running_.emplace();
        flash_ = flash(running_->token());
    } else if (!isRunning && running_) {
        std::exchange(running_, std::nullopt)->cancel();
        setOn(false);
    }
}

QCoro::Task<> AttentionFlash::flash(tavrin::CancellationToken cancellation) {
    try {
        while (true) {
            co_await sleepFor(&clock_, brandDuration, cancellation);
            setOn(true);
            co_await sleepFor(&clock_, alertDuration, cancellation);
            setOn(false);
        }
    } catch (const tavrin::TaskCancelled&) {
        // `setRunning` has already shown the brand image again.
    } catch (const std::exception& error) {
        log_.error("the attention flash has ended: {}", error.what());
        setOn(false);
    }
}

void AttentionFlash::setOn(bool isOn) {
    if (std::exchange(isOn_, isOn) != isOn) {
        Q_EMIT changed();
    }
}

} // namespace orvel
