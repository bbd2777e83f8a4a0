// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/CollectionLoop.h"

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/app/CollectionStatus.h"
#include "OrvelAgent/app/Permissions.h"
#include "OrvelAgent/base/Sleep.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ScanRun.h"
#include "core/Errors.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

CollectionLoop::CollectionLoop(
    const Services& services, LogReader::Subsystems subsystems, Logger log)
    : services_(services), subsystems_(std::move(subsystems)), log_(std::move(log)) {}

tavrin::Seconds CollectionLoop::backoff(std::int64_t failures) {
    const std::int64_t doublings = std::min<std::int64_t>(failures - 1, 5);
    return std::min(backoffUnit * static_cast<double>(1 << doublings), backoffCap);
}

void CollectionLoop::start() {
    if (!loop_) {
        loop_.emplace();
        *loop_ = collect(cancellation_.token());
    }
}

QCoro::Task<> CollectionLoop::rescan() {
    try {
        co_await services_.collector.resetWatermark();
    } catch (const std::exception& error) {
        log_.error("could not forget the progress of earlier scans: {}", error.what());
    }
    co_await performScan(cancellation_.token());
}

QCoro::Task<> CollectionLoop::collect(tavrin::CancellationToken cancellation) {
    try {
        // Wait until the stored session has been read.
        co_await services_.auth.restored(cancellation);
        co_await services_.permissions.checked(cancellation);
        while (!cancellation.isCancelled()) {
            if (!services_.permissions.hasFullDiskAccess()) {
                co_await services_.permissions.refresh();
            }
            const bool isBlocked = services_.status.blockedReason().has_value();
            if (!isBlocked) {
                co_await performScan(cancellation);
            }
            const tavrin::Seconds wait = isBlocked ? blockedRecheck : waitAfterScan();
            co_await sleepFor(&services_.clock, wait, cancellation);
        }
    } catch (const tavrin::TaskCancelled&) {
        // Cancellation is a normal end.
    } catch (const std::exception& error) {
        log_.error("collection has ended: {}", error.what());
    }
    loopEnd_.resolve();
}

QCoro::Task<> CollectionLoop::performScan(tavrin::CancellationToken cancellation) {
    while (scanEnd_) {
        co_await scanEnd_->settled(cancellation);
    }
    const Deferred<void> end = scanEnd_.emplace();
    const std::optional<QUuid> before = newestScan();
    bool isCancelled = false;
    try {
        co_await scanOnce(cancellation);
    } catch (const tavrin::TaskCancelled&) {
        isCancelled = true;
    } catch (const std::exception& error) {
        services_.collector.recordAbort(error.what());
    }
    if (!isCancelled && newestScan() != before) {
        const bool hasFailed = services_.collector.history().front().error.has_value();
        consecutiveFailures_ = hasFailed ? consecutiveFailures_ + 1 : 0;
    }
    scanEnd_.reset();
    end.resolve();
    if (isCancelled) {
        throw tavrin::TaskCancelled();
    }
}

QCoro::Task<> CollectionLoop::scanOnce(tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    if (services_.status.blockedReason()) {
        co_return;
    }
    co_await services_.scanRun.run(ScanRun::AddressBookUse::Read, std::nullopt, cancellation);
    cancellation.throwIfCancelled();
    while (services_.scanRun.wasSuperseded() && !services_.status.blockedReason()) {
        co_await services_.scanRun.run(ScanRun::AddressBookUse::Read, std::nullopt, cancellation);
        cancellation.throwIfCancelled();
    }
    std::vector<std::string> lines = co_await LogReader::recentLines(
        &services_.logStore, &services_.clock, subsystems_, diagnosticsWindow, cancellation);
    co_await services_.scanRun.sendDiagnostics(std::move(lines), cancellation);
}

tavrin::Seconds CollectionLoop::waitAfterScan() const {
    if (consecutiveFailures_ < 1) {
        // The next sign-in should not have to wait for a quarter of an hour.
        return services_.scanRun.hasSessionEnded() ? blockedRecheck : scanInterval;
    }
    return backoff(consecutiveFailures_);
}

std::optional<QUuid> CollectionLoop::newestScan() const {
    const auto& history = services_.collector.history();
    return history.empty() ? std::nullopt : std::optional(history.front().id);
}

} // namespace orvel
