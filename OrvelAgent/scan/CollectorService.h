// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/ScanPlan.h"
#include "OrvelAgent/scan/ScanSummary.h"
#include "OrvelAgent/scan/ScanWalk.h"
#include "core/CancellationToken.h"

#include <QCoroTask>
#include <QObject>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// Runs scans, one at a time, and keeps their summaries. A scan takes a snapshot of the Messages
/// database and sends every message that was not sent yet (see `ScanWalk`).
///
/// Progress is saved in the watermark store after the service has accepted a batch, so the next
/// scan continues where a failed or killed one stopped. Main thread. Borrows all references. Must
/// not be destroyed during a scan.
class CollectorService final : public QObject {
    Q_OBJECT

public:
    using ScanSummary = orvel::ScanSummary;
    using Progress = ScanProgress;
    using Options = ScanWalk::Options;

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

    /// Runs one scan. Returns no value if paused or already scanning, else the summary, which is
    /// also added to the history. The summary contains the error of a failed scan. Cancelling ends
    /// the scan between batches, or at once while it copies, sends or waits. A cancelled scan has
    /// no error, unless the service ended the session.
    QCoro::Task<std::optional<ScanSummary>>
    runScan(ScanPlan plan, tavrin::CancellationToken cancellation = {});

    /// Records a scan that was skipped before it started.
    void recordAbort(std::string reason);

    /// Deletes the saved progress, so the next scan starts from the newest message. Ends a running
    /// scan before its next batch. The service recognizes messages that were already sent. Throws
    /// `tavrin::PlatformError` if saving fails, and `std::runtime_error` while another process
    /// scans. A running scan then continues.
    QCoro::Task<> resetWatermark();

    /// The number of successful resets.
    [[nodiscard]] std::uint64_t resets() const { return *dependencies_.resets; }

    /// A paused service starts no scan and ends a running one before its next batch.
    void setPaused(bool isPaused);

    void noteContactsUnavailable() const;
    void noteDebuggerBlocksPrompt() const;
    void noteContactsRequestIgnored() const;
    void noteContactsAddedNothing(std::int64_t scanned) const;

    [[nodiscard]] bool isScanning() const { return isScanning_; }
    [[nodiscard]] bool isPaused() const { return isPaused_; }
    /// Whether a scan has ever counted the messages of the last 24 hours.
    [[nodiscard]] bool hasScanned() const;
    /// Newest first.
    [[nodiscard]] const std::vector<ScanSummary>& history() const { return history_; }
    /// The error of the last failed or skipped scan. Cleared when a scan starts.
    [[nodiscard]] const std::optional<std::string>& lastError() const { return lastError_; }
    /// Why the newest messages did not come with the last scan. Empty if they did. Cleared when a
    /// scan starts.
    [[nodiscard]] const std::optional<std::string>& postponement() const { return postponement_; }
    /// Of the running scan, or of the last one.
    [[nodiscard]] const Progress& progress() const { return progress_; }

Q_SIGNALS:
    /// `isScanning`, `isPaused`, `history` or `lastError` has changed.
    void changed();
    void progressed();

private:
    ScanSummary finish(ScanSummary summary);

    const ScanWalk::Dependencies dependencies_;

    bool isScanning_ = false;
    bool isPaused_ = false;
    std::vector<ScanSummary> history_;
    std::optional<std::string> lastError_;
    std::optional<std::string> postponement_;
    Progress progress_;
};

} // namespace orvel
