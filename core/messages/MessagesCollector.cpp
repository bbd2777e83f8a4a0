// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessagesCollector.h"

#include "core/messages/AppleEpoch.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "core/messages/HandleNormalizer.h"
#include "core/messages/MessageQuery.h"
#include "core/messages/SQLiteDatabase.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace tavrin {

namespace {

namespace column = MessageQuery::column;
using Binding = SQLiteDatabase::Binding;
using Error = MessagesCollector::Error;
using Row = SQLiteDatabase::Row;

/// How many rows beyond the recorded highest id are checked.
constexpr std::int64_t mostRowsBeyondRecord = 100;

/// The style of a group; 0 means that the database has no style.
constexpr std::int64_t groupStyle = 43;

/// In a damaged file, this many rows are read at least, to see which ids fit to the others, ...
constexpr std::int64_t leastRowsOutOfOrder = 2'000;
/// ... and at most about this many before the walk fails without a row that fits.
constexpr std::int64_t mostRowsOutOfOrder = 100'000;

std::int64_t firstInteger(
    SQLiteDatabase& database, const std::string& sql, std::span<const Binding> bindings = {}) {
    std::optional<std::int64_t> first;
    database.query(sql, bindings, [&first](const Row& row) {
        if (!first) {
            first = row.integer(0);
        }
    });
    return first.value_or(0);
}

void requireColumn(SQLiteDatabase& database, const std::string& name) {
    if (!database.columnExists(name, "message")) {
        throw Error(Error::SchemaMissing{"column `message." + name + "`"});
    }
}

void requireTable(SQLiteDatabase& database, const std::string& name) {
    if (!database.tableExists(name)) {
        throw Error(Error::SchemaMissing{"table `" + name + "`"});
    }
}

/// For each key, whether it belongs to the longest sequence of keys that never descends. Of several
/// longest ones, takes one with the smallest last key.
std::vector<bool> longestAscent(const std::vector<std::int64_t>& keys) {
    // For each length, the index at which the sequence with the smallest last key ends.
    std::vector<std::size_t> ends;
    std::vector<std::optional<std::size_t>> previous(keys.size());
    for (std::size_t index = 0; index < keys.size(); ++index) {
        const auto end = std::upper_bound(
            ends.begin(), ends.end(), keys[index], [&keys](std::int64_t key, std::size_t other) {
                return key < keys[other];
            });
        if (end != ends.begin()) {
            previous[index] = *std::prev(end);
        }
        if (end == ends.end()) {
            ends.push_back(index);
        } else {
            *end = index;
        }
    }
    std::vector<bool> belongs(keys.size());
    for (std::optional<std::size_t> index = ends.empty() ? std::nullopt
                                                         : std::optional(ends.back());
         index;
         index = previous[*index]) {
        belongs[*index] = true;
    }
    return belongs;
}

struct Describe {
    std::string operator()(const Error::SchemaMissing& missing) const {
        return "chat.db schema unexpected: " + missing.what +
               " not found. Messages may have changed its schema — collection is paused rather "
               "than silently returning nothing.";
    }

    std::string operator()(const Error::TooManyOutOfOrder& disorder) const {
        return "The Messages database is damaged: the ids of " + std::to_string(disorder.rows) +
               " successive rows are out of order. The messages behind them cannot be read.";
    }
};

} // namespace

/// Valid for all batches until the database or the set of known handles changes.
struct MessagesCollector::Cache {
    struct Chat {
        ChatInfo info;
        /// Whether a participant is among the known handles. Computed for the first row that needs
        /// it.
        std::optional<bool> hasKnownParticipant = std::nullopt;

        [[nodiscard]] bool isGroup() const {
            return info.style != 0 ? info.style == groupStyle : info.participants.size() > 1;
        }
    };

    struct Version {
        std::int64_t data;
        std::int64_t schema;

        bool operator==(const Version&) const = default;
    };

    void setKnownHandleHints(const std::shared_ptr<const HintSet>& hints) {
        if (hints == knownHandleHints) {
            return;
        }
        knownHandleHints = hints;
        for (auto& [rowID, chat] : chats) {
            chat.hasKnownParticipant.reset();
        }
    }

    [[nodiscard]] bool isKnown(const std::string& handle) const {
        if (knownHandleHints == nullptr) {
            return false;
        }
        const auto hint = HandleNormalizer::matchHint(Handle::classify(handle));
        return hint && knownHandleHints->contains(*hint);
    }

    [[nodiscard]] bool hasKnownParticipant(Chat& chat) const {
        if (!chat.hasKnownParticipant) {
            const auto& participants = chat.info.participants;
            chat.hasKnownParticipant = std::any_of(
                participants.begin(), participants.end(), [this](const std::string& participant) {
                    return isKnown(participant);
                });
        }
        return *chat.hasKnownParticipant;
    }

    /// None before the first scan.
    std::optional<Version> version;
    /// Greater row ids are damaged.
    std::int64_t highestRowID = std::numeric_limits<std::int64_t>::max();
    std::string selectList;
    std::unordered_map<std::int64_t, Chat> chats;
    std::shared_ptr<const HintSet> knownHandleHints;
};

/// Builds a batch from the rows of one query.
class MessagesCollector::BatchReader final {
public:
    /// Examines at most `readLimit` rows. The row after them only shows where the last message
    /// ends.
    BatchReader(
        Cache& cache,
        const Options& options,
        std::int64_t bound,
        bool ascending,
        std::int64_t readLimit)
        : cache_(cache),
          options_(options),
          bound_(bound),
          ascending_(ascending),
          readLimit_(readLimit) {
        constexpr std::int64_t mostReserved = 1'000;
        const auto expected =
            static_cast<std::size_t>(std::clamp<std::int64_t>(readLimit, 0, mostReserved));
        records_.reserve(expected);
        messages_.reserve(expected + 1);
    }

    void read(const Row& row) {
        const std::int64_t rowID = row.integer(column::rowID);
        if (messages_.empty() || messages_.back().rowID != rowID) {
            isInOrder_ = isInOrder_ && isPossible(rowID) &&
                         isBetween(messages_.empty() ? bound_ : messages_.back().rowID, rowID);
            messages_.push_back({.rowID = rowID, .firstRecord = records_.size()});
        }
        if (rows_ >= readLimit_) {
            isCutOff_ = true;
            return;
        }
        ++rows_;
        examine(row, messages_.back());
    }

    /// Whether only a query with a larger limit can tell what belongs to the batch.
    [[nodiscard]] bool needsMoreRows(const Batch& batch) const {
        if (!isCutOff_) {
            return false;
        }
        return isInOrder_ ? batch.scanned == 0
                          : readLimit_ < leastRowsOutOfOrder ||
                                (batch.scanned == 0 && readLimit_ < mostRowsOutOfOrder);
    }

    /// Leaves an incomplete message, and all that exceeds the batch limit, to the next batch.
    [[nodiscard]] Batch take() {
        const std::vector<bool> fits = messagesInOrder();
        const std::size_t complete = messages_.size() - (isCutOff_ ? 1 : 0);
        Batch batch;
        batch.highWatermark = bound_;
        batch.lowWatermark = bound_;
        batch.hasMore = isCutOff_;
        auto end = records_.begin();
        for (std::size_t index = 0; index < complete; ++index) {
            const Message& message = messages_[index];
            if (!fits[index]) {
                batch.skippedOutOfOrder += message.rows;
                batch.skippedNotUserContent += message.rows;
                continue;
            }
            if (batch.scanned > 0 && batch.scanned > options_.batchLimit - message.rows) {
                batch.hasMore = true;
                break;
            }
            add(message, batch);
            end = moveRecords(index, end);
        }
        records_.erase(end, records_.end());
        batch.records = std::move(records_);
        return batch;
    }

private:
    /// The rows of one message, which follow each other.
    struct Message {
        std::int64_t rowID = 0;
        /// The index of its first record. The others follow.
        std::size_t firstRecord = 0;
        std::int64_t rows = 0;
        std::int64_t outOfScope = 0;
        std::int64_t undecodable = 0;
        std::int64_t notUserContent = 0;
    };

    [[nodiscard]] bool isBetween(std::int64_t before, std::int64_t rowID) const {
        return ascending_ ? rowID > before : rowID < before;
    }

    [[nodiscard]] bool isPossible(std::int64_t rowID) const { return rowID <= cache_.highestRowID; }

    /// For each message, whether its id is possible, fits to those around it and is beyond the
    /// bound.
    [[nodiscard]] std::vector<bool> messagesInOrder() const {
        if (isInOrder_) {
            return std::vector<bool>(messages_.size(), true);
        }
        // The complement reverses the order.
        const auto key = [this](std::int64_t rowID) {
            return ascending_ ? rowID : ~rowID;
        };
        // The bound is the id of the row before, so it also shows which ids fit.
        std::vector<std::int64_t> keys{key(bound_)};
        for (const Message& message : messages_) {
            if (isPossible(message.rowID)) {
                keys.push_back(key(message.rowID));
            }
        }
        const std::vector<bool> ascent = longestAscent(keys);
        std::vector<bool> fits;
        std::size_t position = 0;
        for (const Message& message : messages_) {
            fits.push_back(
                isPossible(message.rowID) && ascent[++position] &&
                isBetween(bound_, message.rowID));
        }
        return fits;
    }

    static void add(const Message& message, Batch& batch) {
        const bool isFirst = batch.scanned == 0;
        batch.highWatermark =
            isFirst ? message.rowID : std::max(batch.highWatermark, message.rowID);
        batch.lowWatermark = isFirst ? message.rowID : std::min(batch.lowWatermark, message.rowID);
        batch.scanned += message.rows;
        batch.skippedOutOfScope += message.outOfScope;
        batch.skippedUndecodable += message.undecodable;
        batch.skippedNotUserContent += message.notUserContent;
    }

    using Records = std::vector<MessageRecord>;

    /// Moves the message's records to that place, and returns the place behind them.
    Records::iterator moveRecords(std::size_t message, Records::iterator to) {
        const auto at = [this](std::size_t index) {
            return records_.begin() + static_cast<std::ptrdiff_t>(index);
        };
        const auto first = at(messages_[message].firstRecord);
        const auto last = message + 1 < messages_.size() ? at(messages_[message + 1].firstRecord)
                                                         : records_.end();
        return first == to ? last : std::move(first, last, to);
    }

    void examine(const Row& row, Message& message) {
        ++message.rows;
        const std::optional<Date> sentAt = AppleEpoch::date(row.integer(column::date));
        if (row.integer(column::itemType) != 0 || row.isNull(column::guid) || !sentAt) {
            ++message.notUserContent;
            return;
        }
        Cache::Chat* const chat = chatOf(row);
        std::optional<std::string> handle = row.string(column::handle);
        if (!isInScope(chat, handle)) {
            ++message.outOfScope;
            return;
        }
        MessageRecord& record = records_.emplace_back();
        record.guid = row.string(column::guid).value_or("");
        record.rowID = message.rowID;
        if (chat != nullptr) {
            record.chatGUID = chat->info.guid;
            record.participants = chat->info.participants;
            record.isGroupThread = chat->isGroup();
        }
        if (record.participants.empty() && handle) {
            record.participants.push_back(*handle);
        }
        record.isFromMe = row.integer(column::isFromMe) == 1;
        if (!record.isFromMe) {
            record.senderHandle = std::move(handle);
        }
        record.service = row.string(column::service);
        record.sentAt = *sentAt;
        record.hasAttachments = row.integer(column::hasAttachments) == 1;
        record.associatedMessageType = row.integer(column::associatedMessageType);
        if (options_.mode == CollectionMode::WithBodies && !readBody(row, record)) {
            ++message.undecodable;
        }
    }

    Cache::Chat* chatOf(const Row& row) {
        if (row.isNull(column::chat)) {
            return nullptr;
        }
        const auto found = cache_.chats.find(row.integer(column::chat));
        return found == cache_.chats.end() ? nullptr : &found->second;
    }

    bool isInScope(Cache::Chat* chat, const std::optional<std::string>& handle) const {
        if (options_.scope == ThreadScope::AllThreads) {
            return true;
        }
        return chat != nullptr && !chat->info.participants.empty()
                   ? cache_.hasKnownParticipant(*chat)
                   : handle && cache_.isKnown(*handle);
    }

    /// Returns false if there is a text that cannot be decoded.
    static bool readBody(const Row& row, MessageRecord& record) {
        record.body = row.string(column::text);
        if (record.body && !record.body->empty()) {
            return true;
        }
        record.body.reset();
        const auto blob = row.blob(column::attributedBody);
        if (!blob) {
            return true;
        }
        record.body = AttributedBodyDecoder::decode(*blob);
        if (!record.body || record.body->empty()) {
            record.body.reset();
            record.bodyUnavailable = true;
        }
        return !record.bodyUnavailable;
    }

    Cache& cache_;
    const Options& options_;
    const std::int64_t bound_;
    const bool ascending_;
    const std::int64_t readLimit_;
    Records records_;
    std::vector<Message> messages_;
    /// Rows examined.
    std::int64_t rows_ = 0;
    bool isInOrder_ = true;
    /// Whether there is a row beyond the limit. It belongs to the last message.
    bool isCutOff_ = false;
};

MessagesCollector::Error::Error(Case error)
    : error_(std::move(error)), description_(std::visit(Describe(), error_)) {}

MessagesCollector::MessagesCollector(std::shared_ptr<SQLiteDatabase> database)
    : database_(std::move(database)), cache_(std::make_unique<Cache>()) {
    requireTable(*database_, "message");
    requireTable(*database_, "handle");
    for (const char* name : {"guid", "date", "is_from_me"}) {
        requireColumn(*database_, name);
    }
}

MessagesCollector::~MessagesCollector() = default;

MessagesCollector::Batch MessagesCollector::collect(std::int64_t after, const Options& options) {
    return scan(after, true, options);
}

MessagesCollector::Batch
MessagesCollector::collectBackfill(std::int64_t before, const Options& options) {
    return scan(before, false, options);
}

std::int64_t MessagesCollector::countMessages(Date since) {
    std::string sql = "SELECT COUNT(*) FROM message\n"
                      "WHERE (date >= ? OR (date < ? AND date >= ?))\n";
    if (database_->columnExists("item_type", "message")) {
        sql += "AND item_type = 0";
    }
    return firstInteger(*database_, sql, MessageQuery::sinceBindings(since));
}

std::int64_t MessagesCollector::highestRowID() {
    const std::optional<std::int64_t> used = highestUsedRowID();
    return used ? *used : firstInteger(*database_, "SELECT MAX(ROWID) FROM message");
}

std::optional<std::int64_t> MessagesCollector::highestUsedRowID() {
    std::int64_t recorded = 0;
    if (database_->tableExists("sqlite_sequence")) {
        database_->query(
            "SELECT seq FROM sqlite_sequence WHERE name = 'message'",
            {},
            [&recorded](const Row& row) { recorded = std::max(recorded, row.integer(0)); });
    }
    if (recorded <= 0) {
        return std::nullopt;
    }
    // SQLite raises the record with every new row. A row beyond it is damaged, or a program has
    // changed the record or the id. The index of the dates tells: it still has the id from before
    // the damage. Without the index, the row counts as sound.
    std::vector<std::vector<Binding>> beyond;
    database_->query(
        "SELECT date, ROWID FROM message WHERE ROWID > ? ORDER BY ROWID DESC LIMIT ?",
        std::vector<Binding>{Binding::integer(recorded), Binding::integer(mostRowsBeyondRecord)},
        [&beyond](const Row& row) {
            beyond.push_back({Binding::integer(row.integer(0)), Binding::integer(row.integer(1))});
        });
    for (const std::vector<Binding>& row : beyond) {
        // The plus sign keeps SQLite from looking for the row id in the table.
        const std::int64_t confirmed = firstInteger(
            *database_, "SELECT ROWID FROM message WHERE date = ? AND +ROWID = ?", row);
        if (confirmed > recorded) {
            return confirmed;
        }
    }
    return recorded;
}

std::map<std::int64_t, MessagesCollector::ChatInfo> MessagesCollector::loadChats() {
    std::map<std::int64_t, ChatInfo> chats;
    if (!database_->tableExists("chat") || !database_->tableExists("chat_handle_join")) {
        return chats;
    }
    database_->query(
        database_->columnExists("style", "chat") ? "SELECT ROWID, guid, style FROM chat"
                                                 : "SELECT ROWID, guid, 0 FROM chat",
        {},
        [&chats](const Row& row) {
            chats[row.integer(0)] = {row.string(1), {}, row.integer(2)};
        });
    database_->query(
        "SELECT chj.chat_id, h.id\n"
        "FROM chat_handle_join chj\n"
        "JOIN handle h ON h.ROWID = chj.handle_id",
        {},
        [&chats](const Row& row) {
            const auto chat = chats.find(row.integer(0));
            std::optional<std::string> handle = row.string(1);
            if (chat != chats.end() && handle) {
                chat->second.participants.push_back(std::move(*handle));
            }
        });
    for (auto& [rowID, chat] : chats) {
        // libc++ 14 lacks the `std::ranges` algorithms, and clang 14 does not compile them.
        std::sort(chat.participants.begin(), chat.participants.end());
        const auto last = std::unique(chat.participants.begin(), chat.participants.end());
        chat.participants.erase(last, chat.participants.end());
    }
    return chats;
}

void MessagesCollector::refreshCache() {
    // Read the version first: a change during the reads below then causes another refresh.
    const Cache::Version version{
        firstInteger(*database_, "PRAGMA data_version"),
        firstInteger(*database_, "PRAGMA schema_version")};
    if (cache_->version == version) {
        return;
    }
    cache_->chats.clear();
    for (auto& [rowID, info] : loadChats()) {
        cache_->chats.emplace(rowID, Cache::Chat{std::move(info)});
    }
    cache_->selectList = MessageQuery::selectList(*database_);
    cache_->highestRowID = highestUsedRowID().value_or(std::numeric_limits<std::int64_t>::max());
    cache_->version = version;
}

MessagesCollector::Batch
MessagesCollector::scan(std::int64_t bound, bool ascending, const Options& options) {
    assert(options.batchLimit >= 1);
    refreshCache();
    cache_->setKnownHandleHints(options.knownHandleHints);

    constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
    for (std::int64_t readLimit = options.batchLimit;;
         readLimit = std::min(readLimit, greatest / 2) * 2) {
        BatchReader reader(*cache_, options, bound, ascending, readLimit);
        database_->query(
            MessageQuery::statement(cache_->selectList, ascending, options.since.has_value()),
            MessageQuery::bindings(bound, options.since, readLimit),
            [&reader](const Row& row) { reader.read(row); });
        Batch batch = reader.take();
        if (reader.needsMoreRows(batch)) {
            continue;
        }
        if (batch.hasMore && batch.scanned == 0) {
            // Without progress, the next batch would be the same. This is not the end of the walk.
            throw Error(Error::TooManyOutOfOrder{readLimit});
        }
        return batch;
    }
}

} // namespace tavrin
