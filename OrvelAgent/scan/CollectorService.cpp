// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/CollectorService.h"

#include "OrvelAgent/base/Sleep.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/network/APIError.h"
#include "OrvelAgent/scan/IdentityEnricher.h"
#include "core/Errors.h"
#include "core/Retrying.h"
#include "core/TransientFailure.h"
#include "core/messages/ChatDatabaseSnapshot.h"
#include "core/messages/SQLiteDatabase.h"
#include "core/messages/SnapshotDirectory.h"

#include <cassert>
#include <utility>

namespace orvel {

using tavrin::MessagesCollector;

/// What is read, alive on the worker only.
struct CollectorService::Source {
    Source(tavrin::FileCopier& copier, std::string path, tavrin::CancellationToken cancellation)
        : snapshot(copier, std::move(path), std::move(cancellation)), collector(snapshot.open()) {}

    // In this order: the connection ends before its files go.
    tavrin::ChatDatabaseSnapshot snapshot;
    MessagesCollector collector;
};

/// One running scan.
struct CollectorService::Scan {
    MessagesCollector::Options options;
    std::shared_ptr<IdentityEnricher> enricher;
    tavrin::CancellationToken cancellation;
    /// Whose progress this is: what was forgotten since must not come back.
    std::uint64_t resets = 0;
    std::shared_ptr<Source> source;
    /// The highest row id that the walk through history started from.
    std::int64_t top = 0;
    ScanSummary summary;
};

namespace {

/// A refusal by the service counts by its status, anything else by its kind.
bool isWorthRetrying(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const APIError& refusal) {
        return tavrin::TransientFailure::isTransient(refusal.status());
    } catch (...) {
        return tavrin::TransientFailure::isTransient(error);
    }
}

} // namespace

CollectorService::CollectorService(
    WatermarkStore& watermarkStore,
    IngestClient ingest,
    tavrin::FileCopier& fileCopier,
    Clock& clock,
    Worker& worker,
    LogStore& logStore,
    Options options)
    : watermarkStore_(watermarkStore),
      ingest_(std::move(ingest)),
      fileCopier_(fileCopier),
      clock_(clock),
      worker_(worker),
      log_(logStore, "collector"),
      options_(std::move(options)) {}

CollectorService::~CollectorService() {
    assert(!isScanning_);
}

QCoro::Task<std::optional<CollectorService::ScanSummary>> CollectorService::runScan(
    tavrin::CollectionMode mode,
    tavrin::ThreadScope scope,
    HintSet knownHandleHints,
    std::optional<tavrin::Date> since,
    ContactBridge::IdentityIndex identityIndex,
    tavrin::CancellationToken cancellation) {
    if (isPaused_ || isScanning_) {
        co_return std::nullopt;
    }
    isScanning_ = true;
    lastError_.reset();
    progress_ = {};

    const auto scan = std::make_shared<Scan>();
    scan->summary.startedAt = clock_.now();
    scan->summary.mode = mode;
    log_.info(
        "scan starting (mode={}, scope={}, known contacts={})",
        tavrin::rawValue(mode),
        tavrin::rawValue(scope),
        knownHandleHints.size());
    scan->options.mode = mode;
    scan->options.scope = scope;
    scan->options.batchLimit = batchLimit;
    scan->options.knownHandleHints = std::make_shared<const HintSet>(std::move(knownHandleHints));
    scan->options.since = since;
    scan->enricher = std::make_shared<IdentityEnricher>(
        std::make_shared<const ContactBridge::IdentityIndex>(std::move(identityIndex)));
    scan->cancellation = std::move(cancellation);
    scan->resets = *resets_;
    Q_EMIT changed();

    try {
        co_await walk(scan);
    } catch (const std::exception& error) {
        // Cancelled, whatever breaks on the way out is nobody's failure.
        if (!scan->cancellation.isCancelled()) {
            scan->summary.error = error.what();
        }
    }

    // The copy goes before the scan is over, and not on this thread: it may be large.
    auto release = [source = std::move(scan->source)]() mutable {
        source.reset();
    };
    co_await worker_.run(std::move(release));

    if (scan->summary.error) {
        lastError_ = scan->summary.error;
        log_.error("scan failed: {}", *scan->summary.error);
    } else if (scan->cancellation.isCancelled()) {
        log_.info("scan stopped");
    }
    co_return finish(*scan);
}

QCoro::Task<> CollectorService::walk(std::shared_ptr<Scan> scan) {
    auto takeSnapshot =
        [&copier = fileCopier_, path = options_.sourcePath, cancellation = scan->cancellation] {
            tavrin::SnapshotDirectory::removeAbandoned();
            return std::make_shared<Source>(copier, path, cancellation);
        };
    scan->source = co_await worker_.run(std::move(takeSnapshot));
    co_await countLastDay(scan);
    if (!watermarkStore_.isBackfillDone()) {
        co_await walkBackfill(scan);
    }
    if (watermarkStore_.isBackfillDone()) {
        co_await walkForward(scan);
    }
}

QCoro::Task<> CollectorService::countLastDay(std::shared_ptr<Scan> scan) {
    const tavrin::Date now = clock_.now();
    auto count = [source = scan->source, since = now - tavrin::Seconds(86400)] {
        std::optional<std::int64_t> result;
        try {
            result = source->collector.countMessages(since);
        } catch (const std::exception&) {
            // A figure for the menu is no reason not to collect.
        }
        return result;
    };
    const std::optional<std::int64_t> messages = co_await worker_.run(std::move(count));
    if (messages) {
        auto save = [&store = watermarkStore_, count = *messages, now] {
            store.setMessagesLast24h(count, now);
        };
        co_await worker_.run(std::move(save));
    }
}

QCoro::Task<> CollectorService::walkBackfill(std::shared_ptr<Scan> scan) {
    std::int64_t cursor = watermarkStore_.backfillCursor();
    bool isFirstBatch = true;
    while (!shouldStop(*scan)) {
        MessagesCollector::Batch batch = co_await collect(scan, cursor, true);
        const bool hasRecords = !batch.records.empty();
        const bool hasMore = batch.hasMore;
        const std::int64_t high = batch.highWatermark;
        const std::int64_t low = batch.lowWatermark;
        co_await upload(scan, std::move(batch.records), high);
        if (scan->resets != *resets_) {
            co_return;
        }

        // The newest message of all marks where the forward pass will begin.
        const bool raisesWatermark = isFirstBatch && batch.scanned > 0;
        if (batch.scanned > 0) {
            if (isFirstBatch) {
                scan->top = high;
            }
            isFirstBatch = false;
        }
        cursor = low;
        auto save = [&store = watermarkStore_,
                     resets = resets_,
                     ours = scan->resets,
                     raisesWatermark,
                     high,
                     low,
                     hasMore] {
            if (*resets != ours) {
                return;
            }
            if (raisesWatermark && store.watermark() < high) {
                store.setWatermark(high);
            }
            store.setBackfillCursor(low);
            if (!hasMore) {
                store.setBackfillDone(true);
            }
        };
        co_await worker_.run(std::move(save));
        reportProgress(*scan, cursor);
        if (!hasMore) {
            co_return;
        }
        if (hasRecords) {
            try {
                co_await sleepFor(&clock_, options_.backfillPause, scan->cancellation);
            } catch (const tavrin::TaskCancelled&) {
                co_return;
            }
        }
    }
}

QCoro::Task<> CollectorService::walkForward(std::shared_ptr<Scan> scan) {
    while (!shouldStop(*scan)) {
        MessagesCollector::Batch batch = co_await collect(scan, watermarkStore_.watermark(), false);
        const std::int64_t high = batch.highWatermark;
        co_await upload(scan, std::move(batch.records), high);
        if (scan->resets != *resets_) {
            co_return;
        }
        auto save = [&store = watermarkStore_, resets = resets_, ours = scan->resets, high] {
            if (*resets == ours) {
                store.setWatermark(high);
            }
        };
        co_await worker_.run(std::move(save));
        reportProgress(*scan, std::nullopt);
        if (!batch.hasMore || !watermarkStore_.isBackfillDone()) {
            co_return;
        }
    }
}

QCoro::Task<MessagesCollector::Batch>
CollectorService::collect(std::shared_ptr<Scan> scan, std::int64_t bound, bool isBackfill) {
    auto read = [source = scan->source,
                 enricher = scan->enricher,
                 options = scan->options,
                 bound,
                 isBackfill] {
        MessagesCollector::Batch batch = isBackfill
                                             ? source->collector.collectBackfill(bound, options)
                                             : source->collector.collect(bound, options);
        enricher->enrich(batch.records);
        return batch;
    };
    MessagesCollector::Batch batch = co_await worker_.run(std::move(read));
    ScanSummary& summary = scan->summary;
    summary.scanned += batch.scanned;
    summary.collected += static_cast<std::int64_t>(batch.records.size());
    summary.skippedOutOfScope += batch.skippedOutOfScope;
    summary.skippedUndecodable += batch.skippedUndecodable;
    summary.skippedNotUserContent += batch.skippedNotUserContent;
    co_return batch;
}

QCoro::Task<> CollectorService::upload(
    std::shared_ptr<Scan> scan, IngestClient::Records records, std::int64_t watermark) {
    if (records.empty()) {
        co_return;
    }
    const auto count = static_cast<std::int64_t>(records.size());
    const auto shared = std::make_shared<const IngestClient::Records>(std::move(records));
    // Plain functions that return tasks, no coroutines: what they capture lives in `retrying`.
    auto sleep = [this, scan](double seconds) {
        return sleepFor(&clock_, tavrin::Seconds(seconds), scan->cancellation);
    };
    auto report = [this](const std::exception_ptr& error, std::size_t retry, double seconds) {
        log_.log(
            "batch upload failed ({}); resending the same batch in {:.1f}s (retry {})",
            tavrin::description(error),
            seconds,
            retry);
    };
    auto send = [this, scan, shared, watermark] {
        return ingest_.upload(shared, watermark, scan->cancellation);
    };
    const IngestClient::Ack ack = co_await tavrin::retrying<QCoro::Task, IngestClient::Ack>(
        options_.retryDelays,
        isWorthRetrying,
        std::move(sleep),
        std::move(report),
        std::move(send));
    log_.info(
        "batch accepted: {} messages, {} contacts touched, {} with unknown counterparties",
        ack.accepted,
        ack.contactsTouched.value_or(0),
        ack.unknownCounterparty.value_or(0));
    scan->summary.uploaded += count;
}

bool CollectorService::shouldStop(const Scan& scan) const {
    return isPaused_ || scan.cancellation.isCancelled() || scan.resets != *resets_;
}

CollectorService::ScanSummary CollectorService::finish(const Scan& scan) {
    ScanSummary summary = scan.summary;
    summary.id = QUuid::createUuid();
    summary.finishedAt = clock_.now();
    summary.watermark = watermarkStore_.watermark();
    insert(summary);
    if (history_.size() > maximumHistory) {
        history_.resize(maximumHistory);
    }
    isScanning_ = false;
    log_.info(
        "scan done: examined {}, sent {}, skipped {} out of scope, backfill {}, watermark {}",
        summary.scanned,
        summary.uploaded,
        summary.skippedOutOfScope,
        watermarkStore_.isBackfillDone() ? "complete" : "in progress",
        summary.watermark);
    Q_EMIT changed();
    return summary;
}

void CollectorService::insert(ScanSummary summary) {
    history_.insert(history_.begin(), std::move(summary));
}

void CollectorService::reportProgress(
    const Scan& scan, std::optional<std::int64_t> backfillCursor) {
    progress_.scanned = scan.summary.scanned;
    progress_.uploaded = scan.summary.uploaded;
    progress_.backfillFraction.reset();
    if (backfillCursor && scan.top > 0) {
        progress_.backfillFraction =
            1.0 - static_cast<double>(*backfillCursor) / static_cast<double>(scan.top);
    }
    Q_EMIT progressed();
}

void CollectorService::recordAbort(std::string reason) {
    log_.error("scan skipped: {}", reason);
    ScanSummary summary;
    summary.id = QUuid::createUuid();
    summary.startedAt = clock_.now();
    summary.finishedAt = summary.startedAt;
    summary.watermark = watermarkStore_.watermark();
    summary.mode = tavrin::CollectionMode::MetadataOnly;
    summary.error = reason;
    lastError_ = std::move(reason);
    // The next finished scan cuts the history back.
    insert(std::move(summary));
    Q_EMIT changed();
}

QCoro::Task<> CollectorService::resetWatermark() {
    // Counted on the worker, between what is saved before it and after it, and only when it is
    // done.
    auto reset = [&store = watermarkStore_, resets = resets_] {
        store.reset();
        ++*resets;
    };
    return worker_.run(std::move(reset));
}

void CollectorService::setPaused(bool isPaused) {
    if (isPaused_ != isPaused) {
        isPaused_ = isPaused;
        Q_EMIT changed();
    }
}

bool CollectorService::hasScanned() const {
    return watermarkStore_.messagesLast24hAt().has_value();
}

void CollectorService::noteContactsUnavailable() const {
    log_.error("Contacts access not granted: only identifiers the graph already holds can match, "
               "which on an email-derived graph is very few phone numbers");
}

void CollectorService::noteDebuggerBlocksPrompt() const {
    log_.error("not requesting Contacts: a debugger is attached, so macOS will not show the prompt "
               "and would record a permanent denial. Quit the Xcode run and open the app from "
               "Finder.");
}

void CollectorService::noteContactsRequestIgnored() const {
    log_.error("Contacts request did not grant access and macOS showed no prompt. A decision "
               "recorded for an earlier build of this app cannot be repaired by toggling the "
               "switch — remove Orvel Agent from System Settings > Privacy & Security > Contacts, "
               "then ask again.");
}

void CollectorService::noteContactsAddedNothing(std::int64_t scanned) const {
    log_.error(
        "address book gave no new identifiers ({} contacts): either none of them share an email "
        "with the graph, or the threads genuinely do not overlap it",
        scanned);
}

} // namespace orvel
