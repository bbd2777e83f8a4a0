// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/WatermarkStore.h"
#include "core/CancellationToken.h"
#include "core/CollectionPreferences.h"
#include "core/Date.h"
#include "core/messages/FileCopier.h"
#include "core/messages/MessagesCollector.h"
#include "platform/Clock.h"

#include <QCoroTask>
#include <QObject>
#include <QUuid>

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// The main loop of the agent: one call of `runScan` takes a private snapshot of the Messages
/// database, sends every message that was not sent yet in batches, first backwards through history
/// and then forwards past the watermark, and records a summary.
///
/// Progress lives in the watermark store and moves only after the service accepted a batch, so a
/// scan that fails or is killed anywhere is taken up by the next one. Main thread; copying,
/// reading, enriching, encoding and saving happen on the worker. Everything it is given is
/// borrowed. It must not be destroyed while it scans.
class CollectorService final : public QObject {
    Q_OBJECT

public:
    /// What one scan did.
    struct ScanSummary {
        QUuid id;
        tavrin::Date startedAt;
        tavrin::Date finishedAt;
        /// Rows examined.
        std::int64_t scanned = 0;
        /// Records produced.
        std::int64_t collected = 0;
        std::int64_t skippedOutOfScope = 0;
        /// Rows kept without text because none could be extracted.
        std::int64_t skippedUndecodable = 0;
        std::int64_t skippedNotUserContent = 0;
        /// Records sent and accepted.
        std::int64_t uploaded = 0;
        /// As stored at the end.
        std::int64_t watermark = 0;
        tavrin::CollectionMode mode = tavrin::CollectionMode::MetadataOnly;
        /// Why the scan failed or was skipped; absent on success.
        std::optional<std::string> error;
    };

    /// How far a running scan has come.
    struct Progress {
        std::int64_t scanned = 0;
        std::int64_t uploaded = 0;
        /// Done part of the walk through the row ids, 0 to 1, while history is walked; absent while
        /// new messages are read, whose number is not known.
        std::optional<double> backfillFraction;
    };

    struct Options {
        std::string sourcePath;
        /// Between two batches of history that were sent, so that a first scan stays unnoticed.
        tavrin::Seconds backfillPause{10};
        /// In seconds, before each further attempt to send the same batch.
        std::vector<double> retryDelays{5, 15, 45};
    };

    using HintSet = tavrin::MessagesCollector::HintSet;

    static constexpr std::size_t maximumHistory = 50;
    static constexpr std::int64_t batchLimit = 500;

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
    struct Source;
    struct Scan;

    QCoro::Task<> walk(std::shared_ptr<Scan> scan);
    QCoro::Task<> walkBackfill(std::shared_ptr<Scan> scan);
    QCoro::Task<> walkForward(std::shared_ptr<Scan> scan);
    QCoro::Task<tavrin::MessagesCollector::Batch>
    collect(std::shared_ptr<Scan> scan, std::int64_t bound, bool isBackfill);
    /// Takes the records out of the batch.
    QCoro::Task<>
    upload(std::shared_ptr<Scan> scan, IngestClient::Records records, std::int64_t watermark);
    QCoro::Task<> countLastDay(std::shared_ptr<Scan> scan);

    [[nodiscard]] bool shouldStop(const Scan& scan) const;
    ScanSummary finish(const Scan& scan);
    void insert(ScanSummary summary);
    void reportProgress(const Scan& scan, std::optional<std::int64_t> backfillCursor);

    WatermarkStore& watermarkStore_;
    IngestClient ingest_;
    tavrin::FileCopier& fileCopier_;
    Clock& clock_;
    Worker& worker_;
    Logger log_;
    Options options_;

    bool isScanning_ = false;
    bool isPaused_ = false;
    /// How often progress was forgotten. Shared with the worker, which may have work left when this
    /// object is gone.
    std::shared_ptr<std::atomic<std::uint64_t>> resets_ =
        std::make_shared<std::atomic<std::uint64_t>>(0);
    std::vector<ScanSummary> history_;
    std::optional<std::string> lastError_;
    Progress progress_;
};

} // namespace orvel
