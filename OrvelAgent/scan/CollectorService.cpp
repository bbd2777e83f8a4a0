// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/CollectorService.h"

#include "OrvelAgent/network/APIError.h"
#include "core/Errors.h"

#include <cassert>
#include <exception>
#include <utility>

namespace orvel {

CollectorService::CollectorService(
    WatermarkStore& watermarkStore,
    IngestClient ingest,
    tavrin::FileCopier& fileCopier,
    Clock& clock,
    Worker& worker,
    LogStore& logStore,
    Options options)
    : dependencies_{
          watermarkStore,
          std::move(ingest),
          fileCopier,
          clock,
          worker,
          Logger(logStore, "collector"),
          std::move(options),
          [this] { return isPaused_; },
          [this](const ScanProgress& progress) {
              progress_ = progress;
              Q_EMIT progressed();
          },
          std::make_shared<std::atomic<std::uint64_t>>(0),
          std::make_shared<std::weak_ptr<tavrin::Interface>>()} {}

CollectorService::~CollectorService() {
    assert(!isScanning_);
}

QCoro::Task<std::optional<CollectorService::ScanSummary>>
CollectorService::runScan(ScanPlan plan, tavrin::CancellationToken cancellation) {
    if (isPaused_ || isScanning_) {
        co_return std::nullopt;
    }
    isScanning_ = true;
    lastError_.reset();
    postponement_.reset();
    progress_ = {};

    ScanSummary summary;
    summary.startedAt = plan.startedAt;
    summary.mode = plan.mode;
    dependencies_.log.info(
        "scan starting (mode={}, scope={}, known contacts={})",
        tavrin::rawValue(plan.mode),
        tavrin::rawValue(plan.scope),
        plan.knownHandles->size());
    ScanWalk walk(dependencies_, std::move(plan), cancellation, summary);
    Q_EMIT changed();

    try {
        co_await walk.run();
    } catch (const APIError& error) {
        // Also if the reply ended the session, which cancelled the scan.
        summary.error = error.what();
    } catch (const std::exception&) {
        // An error after a cancellation is a consequence of it.
        if (!cancellation.isCancelled()) {
            summary.error = tavrin::description(std::current_exception());
        }
    }
    postponement_ = walk.postponement();
    co_await walk.close();

    if (summary.error) {
        lastError_ = summary.error;
        dependencies_.log.error("scan failed: {}", *summary.error);
    } else if (cancellation.isCancelled()) {
        dependencies_.log.info("scan stopped");
    }
    co_return finish(std::move(summary));
}

CollectorService::ScanSummary CollectorService::finish(ScanSummary summary) {
    summary.id = QUuid::createUuid();
    summary.finishedAt = dependencies_.clock.now();
    summary.watermark = dependencies_.watermarkStore.watermark();
    history_.insert(history_.begin(), summary);
    if (history_.size() > maximumHistory) {
        history_.resize(maximumHistory);
        // Hours without the service add hundreds of skipped scans.
        history_.shrink_to_fit();
    }
    isScanning_ = false;
    dependencies_.log.info(
        "scan done: examined {}, sent {}, skipped {} out of scope, backfill {}, watermark {}",
        summary.scanned,
        summary.uploaded,
        summary.skippedOutOfScope,
        dependencies_.watermarkStore.isBackfillDone() ? "complete" : "in progress",
        summary.watermark);
    Q_EMIT changed();
    return summary;
}

void CollectorService::recordAbort(std::string reason) {
    dependencies_.log.error("scan skipped: {}", reason);
    ScanSummary summary;
    summary.id = QUuid::createUuid();
    summary.startedAt = dependencies_.clock.now();
    summary.finishedAt = summary.startedAt;
    summary.watermark = dependencies_.watermarkStore.watermark();
    summary.mode = tavrin::CollectionMode::MetadataOnly;
    summary.error = reason;
    lastError_ = std::move(reason);
    // The next finished scan trims the history.
    history_.insert(history_.begin(), std::move(summary));
    Q_EMIT changed();
}

QCoro::Task<> CollectorService::resetWatermark() {
    // Count the reset on the worker, in order with the saves, and only after it has succeeded.
    auto reset = [&store = dependencies_.watermarkStore,
                  resets = dependencies_.resets,
                  heldLock = dependencies_.heldLock] {
        std::shared_ptr<tavrin::Interface> lock = heldLock->lock();
        if (!lock) {
            lock = store.lock();
        }
        store.reset();
        ++*resets;
    };
    return dependencies_.worker.run(std::move(reset));
}

void CollectorService::setPaused(bool isPaused) {
    if (isPaused_ != isPaused) {
        isPaused_ = isPaused;
        Q_EMIT changed();
    }
}

bool CollectorService::hasScanned() const {
    return dependencies_.watermarkStore.messagesLast24hAt().has_value();
}

void CollectorService::noteContactsUnavailable() const {
    dependencies_.log.error(
        "Contacts access not granted: only identifiers the graph already holds can match, "
        "which on an email-derived graph is very few phone numbers");
}

void CollectorService::noteDebuggerBlocksPrompt() const {
    dependencies_.log.error(
        "not requesting Contacts: a debugger is attached, so macOS will not show the prompt "
        "and would record a permanent denial. Quit the Xcode run and open the app from "
        "Finder.");
}

void CollectorService::noteContactsRequestIgnored() const {
    dependencies_.log.error(
        "Contacts request did not grant access and macOS showed no prompt. A decision "
        "recorded for an earlier build of this app cannot be repaired by toggling the "
        "switch — remove Orvel Agent from System Settings > Privacy & Security > Contacts, "
        "then ask again.");
}

void CollectorService::noteContactsAddedNothing(std::int64_t scanned) const {
    dependencies_.log.error(
        "address book gave no new identifiers ({} contacts): either none of them share an email "
        "with the graph, or the threads genuinely do not overlap it",
        scanned);
}

} // namespace orvel
