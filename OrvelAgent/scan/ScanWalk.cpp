// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/ScanWalk.h"

#include "OrvelAgent/base/Sleep.h"
#include "core/messages/AppleEpoch.h"
#include "core/messages/ChatDatabaseSnapshot.h"
#include "core/messages/SQLiteDatabase.h"
#include "core/messages/SnapshotDirectory.h"

#include <QByteArray>

#include <filesystem>
#include <utility>

namespace orvel {

using tavrin::MessagesCollector;

/// Created, used and destroyed on the worker only.
struct ScanWalk::Source {
    Source(
        std::shared_ptr<tavrin::Interface> scanLock,
        tavrin::FileCopier& copier,
        const std::string& path,
        const tavrin::CancellationToken& cancellation,
        std::shared_ptr<tavrin::LiveSnapshots> live)
        : lock(std::move(scanLock)),
          snapshot(copier, path, cancellation, tavrin::ChatDatabaseSnapshot::wait, std::move(live)),
          collector(snapshot.open()) {}

    /// Released last.
    std::shared_ptr<tavrin::Interface> lock;
    // The collector is destroyed first, which closes the connection before the files are removed.
    tavrin::ChatDatabaseSnapshot snapshot;
    MessagesCollector collector;
};

namespace {

/// The absolute path, encoded so that the settings can store any path.
std::string storable(const std::filesystem::path& path) {
    return QByteArray::fromStdString(std::filesystem::absolute(path).lexically_normal().string())
        .toPercentEncoding("/")
        .toStdString();
}

void removeAbandonedCopiesIn(const std::filesystem::path& folder, const Logger& log) {
    try {
        tavrin::SnapshotDirectory::removeAbandoned(folder);
    } catch (const std::filesystem::filesystem_error& error) {
        log.error("a copy of the database that an earlier run left stays: {}", error.what());
    }
}

/// Removes what killed scans have left behind, also in the folder of the scan before, if `$TMPDIR`
/// has changed.
void removeAbandonedCopies(WatermarkStore& store, const Logger& log) {
    const std::filesystem::path parent = tavrin::SnapshotDirectory::parent();
    removeAbandonedCopiesIn(parent, log);
    const std::string folder = storable(parent);
    const std::optional<std::string> before = store.copiesFolder();
    if (before == folder) {
        return;
    }
    if (before) {
        removeAbandonedCopiesIn(
            QByteArray::fromPercentEncoding(QByteArray::fromStdString(*before)).toStdString(), log);
    }
    store.setCopiesFolder(folder);
}

MessagesCollector::Options collectorOptions(const ScanPlan& plan) {
    MessagesCollector::Options options;
    options.mode = plan.mode;
    options.scope = plan.scope;
    options.batchLimit = ScanDefaults::batchSize;
    options.knownHandleHints = plan.knownHandles;
    options.since = plan.since;
    return options;
}

} // namespace

ScanWalk::ScanWalk(
    const Dependencies& dependencies,
    ScanPlan plan,
    tavrin::CancellationToken cancellation,
    ScanSummary& summary)
    : dependencies_(dependencies),
      plan_(std::move(plan)),
      options_(collectorOptions(plan_)),
      ingest_(dependencies.ingest.authorizedBy(plan_.session)),
      enricher_(std::make_shared<IdentityEnricher>(plan_.identities)),
      cancellation_(std::move(cancellation)),
      resetsAtStart_(plan_.resets),
      summary_(summary),
      uploader_(
          ingest_,
          dependencies.clock,
          dependencies.worker,
          dependencies.log,
          dependencies.options.retryDelays,
          cancellation_,
          summary) {}

QCoro::Task<> ScanWalk::run() {
    auto takeSnapshot = [&store = dependencies_.watermarkStore,
                         &copier = dependencies_.fileCopier,
                         path = dependencies_.options.sourcePath,
                         live = dependencies_.options.liveSnapshots,
                         heldLock = dependencies_.heldLock,
                         log = dependencies_.log,
                         cancellation = cancellation_] {
        const std::shared_ptr lock = store.lock();
        *heldLock = lock;
        removeAbandonedCopies(store, log);
        return std::make_shared<Source>(lock, copier, path, cancellation, live);
    };
    source_ = co_await dependencies_.worker.run(std::move(takeSnapshot));
    if (const auto& failure = source_->snapshot.logCopyFailure()) {
        postponement_ = fmt::format(
            "the newest messages come with a later scan, because they could not be copied: {}",
            *failure);
        dependencies_.log.error("{}", *postponement_);
    }
    co_await prepareProgress();
    co_await countLastDay();
    if (!dependencies_.watermarkStore.isBackfillDone()) {
        co_await walkBackfill();
    }
    if (dependencies_.watermarkStore.isBackfillDone()) {
        co_await walkForward();
    }
}

QCoro::Task<> ScanWalk::close() {
    // Remove the copy on the worker, because it may be large.
    auto release = [source = std::move(source_)]() mutable {
        source.reset();
    };
    co_await dependencies_.worker.run(std::move(release));
}

QCoro::Task<> ScanWalk::prepareProgress() {
    struct Changes {
        std::optional<std::string> newStart;
        bool isGapClosed = false;
    };
    const WatermarkStore::Owner owner{
        plan_.session.account, ingest_.service(), storable(dependencies_.options.sourcePath)};
    auto prepare = [source = source_,
                    &store = dependencies_.watermarkStore,
                    owner,
                    scope = plan_.scope,
                    addressBook = plan_.addressBook] {
        Changes changes;
        // Without its log, a copy may lack the newest rows.
        const std::int64_t highest = source->snapshot.logCopyFailure()
                                         ? WatermarkStore::cursorAtStart
                                         : source->collector.highestRowID();
        changes.newStart = store.claim(owner, highest);
        if (addressBook == ScanPlan::AddressBook::Read) {
            changes.isGapClosed = store.returnBeforeContactsGap();
        } else if (
            addressBook == ScanPlan::AddressBook::Unreadable &&
            scope == tavrin::ThreadScope::KnownContactsOnly) {
            store.rememberBeforeContactsGap();
        }
        return changes;
    };
    const Changes changes = co_await dependencies_.worker.run(std::move(prepare));
    if (changes.newStart) {
        dependencies_.log.log("starting from the beginning: {}", *changes.newStart);
    }
    if (changes.isGapClosed) {
        dependencies_.log.log("the address book can be read again: returning to the messages of "
                              "the scans without it");
    }
}

QCoro::Task<> ScanWalk::countLastDay() {
    const tavrin::Date end = plan_.startedAt;
    if (!tavrin::AppleEpoch::isRepresentable(end - tavrin::Seconds(86400))) {
        co_return;
    }
    auto count = [source = source_, since = end - tavrin::Seconds(86400)] {
        std::optional<std::int64_t> result;
        try {
            result = source->collector.countMessages(since);
        } catch (const std::exception&) {
            // The menu shows this count. A failure must not end the scan.
        }
        return result;
    };
    const std::optional<std::int64_t> messages =
        co_await dependencies_.worker.run(std::move(count));
    if (messages) {
        auto save = [&store = dependencies_.watermarkStore, count = *messages, end] {
            store.setMessagesLast24h(count, end);
        };
        co_await dependencies_.worker.run(std::move(save));
    }
}

QCoro::Task<> ScanWalk::walkBackfill() {
    std::int64_t cursor = dependencies_.watermarkStore.backfillCursor();
    bool isFirstBatch = true;
    while (!shouldStop()) {
        MessagesCollector::Batch batch = co_await collect(cursor, true);
        const bool hasRecords = !batch.records.empty();
        const bool hasMore = batch.hasMore;
        const std::int64_t high = batch.highWatermark;
        const std::int64_t low = batch.lowWatermark;
        co_await uploader_.upload(std::move(batch.records), high);
        if (wasReset()) {
            co_return;
        }

        // The forward pass starts after the newest message.
        const bool raisesWatermark = isFirstBatch && batch.scanned > 0;
        if (batch.scanned > 0) {
            if (isFirstBatch) {
                top_ = high;
            }
            isFirstBatch = false;
        }
        cursor = low;
        auto save = [&store = dependencies_.watermarkStore,
                     resets = dependencies_.resets,
                     ours = resetsAtStart_,
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
        co_await dependencies_.worker.run(std::move(save));
        reportProgress(cursor);
        if (!hasMore) {
            co_return;
        }
        if (hasRecords) {
            co_await sleepFor(
                &dependencies_.clock, dependencies_.options.backfillPause, cancellation_);
        }
    }
}

QCoro::Task<> ScanWalk::walkForward() {
    while (!shouldStop()) {
        MessagesCollector::Batch batch =
            co_await collect(dependencies_.watermarkStore.watermark(), false);
        const std::int64_t high = batch.highWatermark;
        co_await uploader_.upload(std::move(batch.records), high);
        if (wasReset()) {
            co_return;
        }
        auto save = [&store = dependencies_.watermarkStore,
                     resets = dependencies_.resets,
                     ours = resetsAtStart_,
                     high] {
            if (*resets == ours) {
                store.setWatermark(high);
            }
        };
        co_await dependencies_.worker.run(std::move(save));
        reportProgress(std::nullopt);
        if (!batch.hasMore || !dependencies_.watermarkStore.isBackfillDone()) {
            co_return;
        }
    }
}

QCoro::Task<MessagesCollector::Batch> ScanWalk::collect(std::int64_t bound, bool isBackfill) {
    auto read = [source = source_, enricher = enricher_, options = options_, bound, isBackfill] {
        MessagesCollector::Batch batch = isBackfill
                                             ? source->collector.collectBackfill(bound, options)
                                             : source->collector.collect(bound, options);
        enricher->enrich(batch.records);
        return batch;
    };
    MessagesCollector::Batch batch = co_await dependencies_.worker.run(std::move(read));
    summary_.scanned += batch.scanned;
    summary_.collected += static_cast<std::int64_t>(batch.records.size());
    summary_.skippedOutOfScope += batch.skippedOutOfScope;
    summary_.skippedUndecodable += batch.skippedUndecodable;
    summary_.skippedNotUserContent += batch.skippedNotUserContent;
    if (batch.skippedOutOfOrder > 0 && !std::exchange(hasLoggedDisorder_, true)) {
        dependencies_.log.error(
            "the Messages database is damaged: skipping rows whose ids are out of order");
    }
    co_return batch;
}

bool ScanWalk::shouldStop() const {
    return dependencies_.isPaused() || cancellation_.isCancelled() || wasReset();
}

void ScanWalk::reportProgress(std::optional<std::int64_t> backfillCursor) {
    ScanProgress progress;
    progress.scanned = summary_.scanned;
    progress.uploaded = summary_.uploaded;
    if (backfillCursor && top_ > 0) {
        progress.backfillFraction =
            1.0 - static_cast<double>(*backfillCursor) / static_cast<double>(top_);
    }
    dependencies_.onProgress(progress);
}

} // namespace orvel
