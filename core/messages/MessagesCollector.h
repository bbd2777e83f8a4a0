// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CollectionPreferences.h"
#include "core/Date.h"
#include "core/messages/MessageRecord.h"

#include <cstdint>
#include <exception>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tavrin {

class SQLiteDatabase;

/// Turns rows of a Messages database into records, one bounded batch at a time, walking the
/// `message` table by row id. Every batch that examined a row moves the walk on, so that it ends
/// even in a corrupt file.
///
/// Lives for one scan over one snapshot and is used by one thread at a time. SQLite's failures pass
/// through as `SQLiteError`; a failing scan returns no partial batch. Schema and chats are read
/// again only when SQLite says that the data or the schema changed.
class MessagesCollector final {
public:
    using HintSet = std::unordered_set<std::string>;

    struct Options {
        CollectionMode mode = CollectionPreferences::defaultMode;
        ThreadScope scope = CollectionPreferences::defaultScope;
        /// Most rows examined in one batch; by default all.
        std::int64_t batchLimit = std::numeric_limits<std::int64_t>::max();
        /// The handles that the assistant knows, as match hints; none is the same as an empty set.
        /// What was found out with a set is kept while the same one is passed: it must not change.
        std::shared_ptr<const HintSet> knownHandleHints;
        /// Only messages sent at or after this instant; it must be one that
        /// `AppleEpoch::rawNanoseconds` takes.
        std::optional<Date> since;
    };

    struct Batch {
        /// In the order of the walk.
        std::vector<MessageRecord> records;
        /// The largest row id examined; the bound itself when no row was.
        std::int64_t highWatermark = 0;
        /// The smallest row id examined; the bound itself when no row was.
        std::int64_t lowWatermark = 0;
        /// Rows examined; a row beyond the limit is not.
        std::int64_t scanned = 0;
        std::int64_t skippedOutOfScope = 0;
        /// Rows kept without text because none came out of their blob.
        std::int64_t skippedUndecodable = 0;
        std::int64_t skippedNotUserContent = 0;
        /// There is at least one further row in the direction of the walk.
        bool hasMore = false;
    };

    struct ChatInfo {
        std::optional<std::string> guid;
        /// Distinct, in ascending byte order.
        std::vector<std::string> participants;
        /// 0 when the database has none.
        std::int64_t style = 0;

        bool operator==(const ChatInfo&) const = default;
    };

    /// What the database lacks.
    class Error final : public std::exception {
    public:
        struct SchemaMissing {
            /// For example "table `message`" or "column `message.guid`".
            std::string what;
        };

        explicit Error(SchemaMissing error);

        [[nodiscard]] const SchemaMissing& error() const { return error_; }
        [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

    private:
        SchemaMissing error_;
        std::string description_;
    };

    /// Checks the schema; throws `Error` for the first piece that is missing.
    explicit MessagesCollector(std::shared_ptr<SQLiteDatabase> database);
    ~MessagesCollector();
    MessagesCollector(const MessagesCollector&) = delete;
    MessagesCollector& operator=(const MessagesCollector&) = delete;

    /// Forwards: rows with an id greater than `after`, ascending.
    [[nodiscard]] Batch collect(std::int64_t after, const Options& options);

    /// Backwards: rows with an id less than `before`, descending.
    [[nodiscard]] Batch collectBackfill(std::int64_t before, const Options& options);

    /// User messages sent at or after the instant, whatever the thread.
    [[nodiscard]] std::int64_t countMessages(Date since);

    /// By chat row id; empty when the database keeps no chats.
    [[nodiscard]] std::map<std::int64_t, ChatInfo> loadChats();

private:
    struct Cache;
    class BatchReader;

    void refreshCache();
    Batch scan(std::int64_t bound, bool ascending, const Options& options);

    std::shared_ptr<SQLiteDatabase> database_;
    std::unique_ptr<Cache> cache_;
};

} // namespace tavrin
