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
using Row = SQLiteDatabase::Row;

/// The style of a group; 0 means that the database has no style.
constexpr std::int64_t groupStyle = 43;

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
        throw MessagesCollector::Error({"column `message." + name + "`"});
    }
}

void requireTable(SQLiteDatabase& database, const std::string& name) {
    if (!database.tableExists(name)) {
        throw MessagesCollector::Error({"table `" + name + "`"});
    }
}

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
    std::string selectList;
    std::unordered_map<std::int64_t, Chat> chats;
    std::shared_ptr<const HintSet> knownHandleHints;
};

/// Builds a batch from query rows.
class MessagesCollector::BatchReader final {
public:
    BatchReader(Cache& cache, const Options& options, std::int64_t bound, bool ascending)
        : cache_(cache), options_(options), previous_(bound), ascending_(ascending) {
        constexpr std::int64_t mostReserved = 1'000;
        batch_.records.reserve(static_cast<std::size_t>(
            std::clamp<std::int64_t>(options.batchLimit, 0, mostReserved)));
        batch_.highWatermark = bound;
        batch_.lowWatermark = bound;
    }

    void read(const Row& row) {
        const std::int64_t rowID = row.integer(column::rowID);
        requireOrder(rowID);
        if (batch_.scanned >= options_.batchLimit) {
            batch_.hasMore = true;
            return;
        }
        examine(rowID);
        const std::optional<Date> sentAt = AppleEpoch::date(row.integer(column::date));
        if (row.integer(column::itemType) != 0 || row.isNull(column::guid) || !sentAt) {
            ++batch_.skippedNotUserContent;
            return;
        }
        Cache::Chat* const chat = chatOf(row);
        std::optional<std::string> handle = row.string(column::handle);
        if (!isInScope(chat, handle)) {
            ++batch_.skippedOutOfScope;
            return;
        }
        MessageRecord& record = batch_.records.emplace_back();
        record.guid = row.string(column::guid).value_or("");
        record.rowID = rowID;
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
        if (options_.mode == CollectionMode::WithBodies) {
            readBody(row, record);
        }
    }

    [[nodiscard]] Batch take() && { return std::move(batch_); }

private:
    void requireOrder(std::int64_t rowID) {
        // The query returns a message once for each of its chats, so an id may repeat, but not the
        // bound.
        const bool isFirstRow = batch_.scanned == 0;
        const bool isInOrder = ascending_
                                   ? rowID > previous_ || (!isFirstRow && rowID == previous_)
                                   : rowID < previous_ || (!isFirstRow && rowID == previous_);
        if (!isInOrder) {
            // Only a corrupt file gives such a row. The caller's cursor could move back, so that
            // the walk never ends, or skip rows that were not read.
            throw SQLiteError(SQLiteError::Step{"database disk image is malformed"});
        }
        previous_ = rowID;
    }

    void examine(std::int64_t rowID) {
        const bool isFirstRow = batch_.scanned == 0;
        ++batch_.scanned;
        batch_.highWatermark = isFirstRow ? rowID : std::max(batch_.highWatermark, rowID);
        batch_.lowWatermark = isFirstRow ? rowID : std::min(batch_.lowWatermark, rowID);
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

    void readBody(const Row& row, MessageRecord& record) {
        record.body = row.string(column::text);
        if (record.body && !record.body->empty()) {
            return;
        }
        record.body.reset();
        const auto blob = row.blob(column::attributedBody);
        if (!blob) {
            return;
        }
        record.body = AttributedBodyDecoder::decode(*blob);
        if (!record.body || record.body->empty()) {
            record.body.reset();
            record.bodyUnavailable = true;
            ++batch_.skippedUndecodable;
        }
    }

    Cache& cache_;
    const Options& options_;
    /// The id of the previous row. The bound before the first row.
    std::int64_t previous_;
    bool ascending_;
    Batch batch_;
};

MessagesCollector::Error::Error(SchemaMissing error)
    : error_(std::move(error)),
      description_(
          "chat.db schema unexpected: " + error_.what +
          " not found. Messages may have changed its schema — collection is paused rather than "
          "silently returning nothing.") {}

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
    std::int64_t highest = 0;
    if (database_->tableExists("sqlite_sequence")) {
        database_->query(
            "SELECT seq FROM sqlite_sequence WHERE name = 'message'",
            {},
            [&highest](const Row& row) { highest = row.integer(0); });
    }
    return highest > 0 ? highest : firstInteger(*database_, "SELECT MAX(ROWID) FROM message");
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
    cache_->version.reset();
    cache_->chats.clear();
    for (auto& [rowID, info] : loadChats()) {
        cache_->chats.emplace(rowID, Cache::Chat{std::move(info)});
    }
    cache_->selectList = MessageQuery::selectList(*database_);
    cache_->version = version;
}

MessagesCollector::Batch
MessagesCollector::scan(std::int64_t bound, bool ascending, const Options& options) {
    assert(options.batchLimit >= 1);
    refreshCache();
    cache_->setKnownHandleHints(options.knownHandleHints);

    BatchReader reader(*cache_, options, bound, ascending);
    database_->query(
        MessageQuery::statement(cache_->selectList, ascending, options.since.has_value()),
        MessageQuery::bindings(bound, options.since, options.batchLimit),
        [&reader](const Row& row) { reader.read(row); });
    return std::move(reader).take();
}

} // namespace tavrin
