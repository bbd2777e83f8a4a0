// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/scan/IdentityEnricher.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanDefaults.h"
#include "OrvelAgent/scan/ScanSummary.h"
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

namespace orvel {

/// One scan's walk through a private copy of the Messages database: backwards through the history
/// that was not sent yet, then forwards past the watermark. Each batch is uploaded, and then the
/// progress is saved.
///
/// Lives for one scan. Main thread; copying, reading, enriching, encoding and saving happen on the
/// worker. It must not be destroyed while `run` or `close` runs.
class ScanWalk final {
public:
    struct Options {
        std::string sourcePath;
        tavrin::Seconds backfillPause = ScanDefaults::backfillPause;
        std::vector<double> retryDelays = ScanDefaults::retryDelays();
    };

    /// Borrows every reference.
    struct Dependencies {
        WatermarkStore& watermarkStore;
        IngestClient ingest;
        tavrin::FileCopier& fileCopier;
        Clock& clock;
        Worker& worker;
        Logger log;
        Options options;
        /// Asked before each batch.
        std::function<bool()> isPaused;
        std::function<void(const ScanProgress&)> onProgress;
        /// Counts how often progress was forgotten; what was read before the last time is not
        /// saved. Shared with the worker, which may still save when the service is gone.
        std::shared_ptr<std::atomic<std::uint64_t>> resets;
    };

    /// Counts in `summary`. Borrows it and the dependencies.
    ScanWalk(
        const Dependencies& dependencies,
        tavrin::MessagesCollector::Options options,
        std::shared_ptr<IdentityEnricher> enricher,
        tavrin::CancellationToken cancellation,
        ScanSummary& summary);
    ScanWalk(const ScanWalk&) = delete;
    ScanWalk& operator=(const ScanWalk&) = delete;

    /// Ends between two batches when paused, cancelled or after a reset. Throws what fails, and
    /// `tavrin::TaskCancelled` when cancelled during a copy, an upload or a retry's pause.
    QCoro::Task<> run();

    /// Removes the copy of the database. To be awaited after `run`, however it ended.
    QCoro::Task<> close();

private:
    struct Source;

    QCoro::Task<> countLastDay();
    QCoro::Task<> walkBackfill();
    QCoro::Task<> walkForward();
    QCoro::Task<tavrin::MessagesCollector::Batch> collect(std::int64_t bound, bool isBackfill);
    QCoro::Task<> upload(IngestClient::Records records, std::int64_t watermark);

    [[nodiscard]] bool wasReset() const { return resetsAtStart_ != *dependencies_.resets; }
    [[nodiscard]] bool shouldStop() const;
    void reportProgress(std::optional<std::int64_t> backfillCursor);

    const Dependencies& dependencies_;
    const tavrin::MessagesCollector::Options options_;
    const std::shared_ptr<IdentityEnricher> enricher_;
    const tavrin::CancellationToken cancellation_;
    const std::uint64_t resetsAtStart_;
    ScanSummary& summary_;
    std::shared_ptr<Source> source_;
    /// The highest row id that the walk through history started from.
    std::int64_t top_ = 0;
};

} // namespace orvel
