// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/log/LogReader.h"
#include "core/CancellationToken.h"
#include "platform/Clock.h"

#include <QCoroTask>
#include <QUuid>

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

namespace orvel {

class AuthService;
class CollectionStatus;
class CollectorService;
class Permissions;
class ScanRun;

/// Scans at the start and then at intervals, one scan at a time. Sends diagnostics after each scan.
///
/// Main thread. Borrows the services. Must outlive its tasks; `cancel` ends them.
class CollectionLoop final {
public:
    /// The wait after a successful scan.
    static constexpr tavrin::Seconds scanInterval{900};
    /// The wait after one failed scan. Each further failure doubles it, up to `backoffCap`.
    static constexpr tavrin::Seconds backoffUnit{60};
    static constexpr tavrin::Seconds backoffCap{300};
    /// The wait while collection is blocked.
    static constexpr tavrin::Seconds blockedRecheck{30};
    /// The part of the log that is sent after each scan.
    static constexpr std::chrono::minutes diagnosticsWindow{20};

    struct Services {
        AuthService& auth;
        Permissions& permissions;
        const CollectionStatus& status;
        CollectorService& collector;
        ScanRun& scanRun;
        Clock& clock;
        LogStore& logStore;
    };

    /// The wait after that many failed scans in succession, at least one.
    [[nodiscard]] static tavrin::Seconds backoff(std::int64_t failures);

    CollectionLoop(const Services& services, LogReader::Subsystems subsystems, Logger log);

    /// A second call does nothing.
    void start();

    /// Ends the loop and the running scan. No further scan can start.
    void cancel() { cancellation_.cancel(); }

    /// Waits for the end of the loop. Throws `TaskCancelled` when the token is cancelled.
    QCoro::Task<> ended(tavrin::CancellationToken cancellation) const {
        return loopEnd_.settled(std::move(cancellation));
    }

    /// Deletes the saved progress, waits for the running scan and scans all conversations. Throws
    /// `TaskCancelled` after `cancel`.
    QCoro::Task<> rescan();

private:
    QCoro::Task<> collect(tavrin::CancellationToken cancellation);
    /// Waits for the running scan, then scans once and counts the failure or success.
    QCoro::Task<> performScan(tavrin::CancellationToken cancellation);
    QCoro::Task<> scanOnce(tavrin::CancellationToken cancellation);
    [[nodiscard]] tavrin::Seconds waitAfterScan() const;
    [[nodiscard]] std::optional<QUuid> newestScan() const;

    const Services services_;
    const LogReader::Subsystems subsystems_;
    const Logger log_;
    std::int64_t consecutiveFailures_ = 0;
    /// Resolved when the running scan ends. Empty while no scan runs.
    std::optional<Deferred<void>> scanEnd_;
    Deferred<void> loopEnd_;
    tavrin::CancellationSource cancellation_;
    std::optional<QCoro::Task<>> loop_;
};

} // namespace orvel
