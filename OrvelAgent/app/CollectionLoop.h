// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/log/LogReader.h"
#include "OrvelAgent/scan/IngestClient.h"
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

/// Scans at the start and then regularly, one scan at a time, and sends diagnostics after each.
///
/// Main thread. Borrows the services, and must outlive its tasks: `cancel` ends them.
class CollectionLoop final {
public:
    /// After a clean scan.
    static constexpr tavrin::Seconds scanInterval{900};
    /// After one failed scan. Each further failure doubles it, up to the cap.
    static constexpr tavrin::Seconds backoffUnit{60};
    static constexpr tavrin::Seconds backoffCap{300};
    /// While something blocks collection.
    static constexpr tavrin::Seconds blockedRecheck{30};
    /// How much of the log is sent after each scan.
    static constexpr std::chrono::minutes diagnosticsWindow{20};

    struct Services {
        AuthService& auth;
        Permissions& permissions;
        const CollectionStatus& status;
        CollectorService& collector;
        ScanRun& scanRun;
        const IngestClient& ingest;
        Clock& clock;
        LogStore& logStore;
    };

    CollectionLoop(const Services& services, LogReader::Subsystems subsystems, Logger log);

    /// Does nothing when it was started before.
    void start();

    /// Ends the loop and the running scan. No scan starts afterwards.
    void cancel() { cancellation_.cancel(); }

    /// Waits for the end of the loop. Throws `TaskCancelled` when the token is cancelled.
    QCoro::Task<> ended(tavrin::CancellationToken cancellation) const {
        return loopEnd_.settled(std::move(cancellation));
    }

    /// Forgets the progress and scans all conversations, after the running scan. Throws
    /// `TaskCancelled` after `cancel`.
    QCoro::Task<> rescan();

private:
    QCoro::Task<> collect(tavrin::CancellationToken cancellation);
    /// One scan, after the running one. Counts it as a failure or a success.
    QCoro::Task<> performScan(tavrin::CancellationToken cancellation);
    QCoro::Task<> scanOnce(tavrin::CancellationToken cancellation);
    [[nodiscard]] tavrin::Seconds waitAfterScan() const;
    [[nodiscard]] std::optional<QUuid> newestScan() const;

    const Services services_;
    const LogReader::Subsystems subsystems_;
    const Logger log_;
    /// How many scans in a row ended with an error.
    std::int64_t consecutiveFailures_ = 0;
    /// Settled at the end of the running scan.
    std::optional<Deferred<void>> scanEnd_;
    Deferred<void> loopEnd_;
    tavrin::CancellationSource cancellation_;
    std::optional<QCoro::Task<>> loop_;
};

} // namespace orvel
