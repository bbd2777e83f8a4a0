// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/ContactBridge.h"
#include "OrvelAgent/scan/ScanSummary.h"
#include "OrvelAgent/scan/ScanWalk.h"
#include "core/CancellationToken.h"
#include "core/CollectionPreferences.h"
#include "core/Date.h"
#include "core/messages/MessagesCollector.h"

#include <QCoroTask>
#include <QObject>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// Runs scans, one at a time, and keeps their summaries: one call of `runScan` takes a private
/// snapshot of the Messages database and sends every message that was not sent yet (see
/// `ScanWalk`).
///
/// Progress lives in the watermark store and moves only after the service accepted a batch, so the
/// next scan continues after one that failed or was killed. Main thread. Everything it is given is
/// borrowed. It must not be destroyed while it scans.
class CollectorService final : public QObject {
    Q_OBJECT

public:
    using ScanSummary = orvel::ScanSummary;
    using Progress = ScanProgress;
    using Options = ScanWalk::Options;
    using HintSet = tavrin::MessagesCollector::HintSet;

    static constexpr std::size_t maximumHistory = 50;

    CollectorService(
        WatermarkStore& watermarkStore,
        IngestClient ingest,
        tavrin::FileCopier& fileCopier,
        Clock& clock,
        Worker& worker,
        LogStore& logStore,
        Options options);
    ~CollectorService() override;

    /// One scan. Nothing when paused or already scanning; else the summary, which is also in the
    /// history. Never throws for a scan that fails: the summary says so. `since` must be an instant
    /// that `AppleEpoch::rawNanoseconds` takes. A cancelled token ends the scan between batches,
    /// and at once while it copies, sends or waits; that is no failure.
    QCoro::Task<std::optional<ScanSummary>> runScan(
        tavrin::CollectionMode mode,
        tavrin::ThreadScope scope,
        HintSet knownHandleHints,
        std::optional<tavrin::Date> since,
        ContactBridge::IdentityIndex identityIndex,
        tavrin::CancellationToken cancellation = {});

    /// Records a scan that was skipped before it started.
    void recordAbort(std::string reason);

    /// Makes the next scan start from the newest message again, and ends the one that runs before
    /// its next batch. The service recognizes messages that were already sent. Throws
    /// `tavrin::PlatformError` when that cannot be saved; the scan that runs then goes on.
    QCoro::Task<> resetWatermark();

    /// A paused service starts no scan and stops a running one before its next batch.
    void setPaused(bool isPaused);

    void noteContactsUnavailable() const;
    void noteDebuggerBlocksPrompt() const;
    void noteContactsRequestIgnored() const;
    void noteContactsAddedNothing(std::int64_t scanned) const;

    [[nodiscard]] bool isScanning() const { return isScanning_; }
    [[nodiscard]] bool isPaused() const { return isPaused_; }
    /// Whether any scan ever counted the messages of its last 24 hours.
    [[nodiscard]] bool hasScanned() const;
    /// Newest first.
    [[nodiscard]] const std::vector<ScanSummary>& history() const { return history_; }
    /// The last failure or skip; cleared when a scan starts.
    [[nodiscard]] const std::optional<std::string>& lastError() const { return lastError_; }
    /// Of the running scan, or of the last one.
    [[nodiscard]] const Progress& progress() const { return progress_; }

Q_SIGNALS:
    /// Scanning, paused, the history or the last error changed.
    void changed();
    void progressed();

private:
    ScanSummary finish(ScanSummary summary);
    void insert(ScanSummary summary);

    const ScanWalk::Dependencies dependencies_;

    bool isScanning_ = false;
    bool isPaused_ = false;
    std::vector<ScanSummary> history_;
    std::optional<std::string> lastError_;
    Progress progress_;
};

} // namespace orvel
