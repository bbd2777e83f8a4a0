// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/scan/BatchUploader.h"
#include "OrvelAgent/scan/IdentityEnricher.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanDefaults.h"
#include "OrvelAgent/scan/ScanPlan.h"
#include "OrvelAgent/scan/ScanSummary.h"
#include "OrvelAgent/scan/UploadRetryDelays.h"
#include "OrvelAgent/scan/WatermarkStore.h"
#include "core/CancellationToken.h"
#include "core/messages/FileCopier.h"
#include "core/messages/MessagesCollector.h"
#include "platform/Clock.h"

#include <QCoroTask>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

class LiveSnapshots;

} // namespace tavrin

namespace orvel {

/// Reads a private copy of the Messages database for one scan: first backwards through the history
/// that was not sent yet, then forwards from the watermark. Uploads each batch, then saves the
/// progress.
///
/// Main thread. Copying, reading, enriching, encoding and saving run on the worker. Must not be
/// destroyed while `run` or `close` runs.
class ScanWalk final {
public:
    struct Options {
        std::string sourcePath;
        tavrin::Seconds backfillPause = ScanDefaults::backfillPause;
        std::vector<double> retryDelays = uploadRetryDelays();
        /// Lists the copy of the database while it exists. May be null.
        std::shared_ptr<tavrin::LiveSnapshots> liveSnapshots = nullptr;
    };

    /// Borrows all references.
    struct Dependencies {
        WatermarkStore& watermarkStore;
        IngestClient ingest;
        tavrin::FileCopier& fileCopier;
        Clock& clock;
        Worker& worker;
        Logger log;
        Options options;
        /// Called before each batch.
        std::function<bool()> isPaused;
        std::function<void(const ScanProgress&)> onProgress;
        /// The number of resets. Progress from before the last reset is not saved. Shared with the
        /// worker, which may still save after the service is destroyed.
        std::shared_ptr<std::atomic<std::uint64_t>> resets;
        /// The lock of the running scan, for a reset during it. Used on the worker only.
        std::shared_ptr<std::weak_ptr<tavrin::Interface>> heldLock;
    };

    /// Updates the counts in `summary`. Borrows it and the dependencies.
    ScanWalk(
        const Dependencies& dependencies,
        ScanPlan plan,
        tavrin::CancellationToken cancellation,
        ScanSummary& summary);
    ScanWalk(const ScanWalk&) = delete;
    ScanWalk& operator=(const ScanWalk&) = delete;

    /// Ends between two batches if paused, cancelled or reset. Throws the error of a failed step,
    /// and `tavrin::TaskCancelled` if cancelled during a copy, an upload or a pause.
    QCoro::Task<> run();

    /// Removes the copy of the database. Await it after `run`, even if that threw.
    QCoro::Task<> close();

    /// Why the newest messages come with a later scan. Empty if they came with this one.
    [[nodiscard]] const std::optional<std::string>& postponement() const { return postponement_; }

private:
    struct Source;

    QCoro::Task<> prepareProgress();
    QCoro::Task<> countLastDay();
    QCoro::Task<> walkBackfill();
    QCoro::Task<> walkForward();
    QCoro::Task<tavrin::MessagesCollector::Batch> collect(std::int64_t bound, bool isBackfill);

    [[nodiscard]] bool wasReset() const { return resetsAtStart_ != *dependencies_.resets; }
    [[nodiscard]] bool shouldStop() const;
    void reportProgress(std::optional<std::int64_t> backfillCursor);

    const Dependencies& dependencies_;
    const ScanPlan plan_;
    const tavrin::MessagesCollector::Options options_;
    const IngestClient ingest_;
    const std::shared_ptr<IdentityEnricher> enricher_;
    const tavrin::CancellationToken cancellation_;
    const std::uint64_t resetsAtStart_;
    ScanSummary& summary_;
    BatchUploader uploader_;
    std::shared_ptr<Source> source_;
    /// The highest row id of the first history batch.
    std::int64_t top_ = 0;
    bool hasLoggedDisorder_ = false;
    std::optional<std::string> postponement_;
};

} // namespace orvel
