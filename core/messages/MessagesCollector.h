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
#include <variant>
#include <vector>

namespace tavrin {

class SQLiteDatabase;

/// Turns rows of a Messages database into records, one bounded batch at a time, in the order of the
/// row ids. A batch holds either all rows of a message or none. Every batch that examines a row
/// advances the cursor, so a walk ends even in a corrupt file.
///
/// Use one object for one scan of one snapshot, on one thread at a time. Throws `SQLiteError` if a
/// query fails, and `Error` if the walk cannot continue; there are no partial batches. Schema and
/// chats are read again only after SQLite reports a change of the data or the schema.
class MessagesCollector final {
public:
    using HintSet = std::unordered_set<std::string>;

    struct Options {
        CollectionMode mode = CollectionPreferences::defaultMode;
        ThreadScope scope = CollectionPreferences::defaultScope;
        /// Most rows examined in one batch. At least 1. Only a message that alone has more rows,
        /// one for each of its chats, exceeds it.
        std::int64_t batchLimit = std::numeric_limits<std::int64_t>::max();
        /// The handles that the service knows, as match hints. Null means an empty set. Results are
        /// cached by pointer, so the set must not change.
        std::shared_ptr<const HintSet> knownHandleHints;
        /// Only messages sent at or after this instant, which must be valid for
        /// `AppleEpoch::rawNanoseconds`.
        std::optional<Date> since;
    };

    struct Batch {
        /// In the order of the query.
        std::vector<MessageRecord> records;
        /// The largest row id examined, or the bound if no row was examined.
        std::int64_t highWatermark = 0;
        /// The smallest row id examined, or the bound if no row was examined.
        std::int64_t lowWatermark = 0;
        /// Rows examined. Rows that are left to the next batch or out of order do not count.
        std::int64_t scanned = 0;
        std::int64_t skippedOutOfScope = 0;
        /// Rows kept without text because their blob could not be decoded.
        std::int64_t skippedUndecodable = 0;
        /// Includes `skippedOutOfOrder`.
        std::int64_t skippedNotUserContent = 0;
        /// Rows whose ids do not fit between those around them, rows that are read again because of
        /// them, and rows beyond `highestRowID`. Only a damaged file has such rows. The next batch
        /// may count them again.
        std::int64_t skippedOutOfOrder = 0;
        /// Whether there is at least one further row in the same direction.
        bool hasMore = false;
    };

    struct ChatInfo {
        std::optional<std::string> guid;
        /// Distinct, in ascending byte order.
        std::vector<std::string> participants;
        /// 0 if the database has no style column.
        std::int64_t style = 0;

        bool operator==(const ChatInfo&) const = default;
    };

    class Error final : public std::exception {
    public:
        struct SchemaMissing {
            /// For example "table `message`" or "column `message.guid`".
            std::string what;
        };
        /// So many successive rows are out of order that the rows behind them are not looked for.
        struct TooManyOutOfOrder {
            std::int64_t rows;
        };
        using Case = std::variant<SchemaMissing, TooManyOutOfOrder>;

        explicit Error(Case error);

        [[nodiscard]] const Case& error() const { return error_; }
        [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

    private:
        Case error_;
        std::string description_;
    };

    /// Checks the schema. Throws `Error` for the first missing table or column.
    explicit MessagesCollector(std::shared_ptr<SQLiteDatabase> database);
    ~MessagesCollector();
    MessagesCollector(const MessagesCollector&) = delete;
    MessagesCollector& operator=(const MessagesCollector&) = delete;

    /// Rows with an id greater than `after`, ascending.
    [[nodiscard]] Batch collect(std::int64_t after, const Options& options);

    /// Rows with an id less than `before`, descending.
    [[nodiscard]] Batch collectBackfill(std::int64_t before, const Options& options);

    /// User messages of all threads, sent at or after the instant.
    [[nodiscard]] std::int64_t countMessages(Date since);

    /// The highest row id that the table of the messages has ever used, or, if the database does
    /// not record that, the highest existing one. 0 without any. No watermark of a batch is higher.
    [[nodiscard]] std::int64_t highestRowID();

    /// By chat row id. Empty if the database has no chat tables.
    [[nodiscard]] std::map<std::int64_t, ChatInfo> loadChats();

private:
    struct Cache;

    [[nodiscard]] std::optional<std::int64_t> highestUsedRowID();
    void refreshCache();
    Batch scan(std::int64_t bound, bool ascending, const Options& options);

    std::shared_ptr<SQLiteDatabase> database_;
    std::unique_ptr<Cache> cache_;
};

} // namespace tavrin
