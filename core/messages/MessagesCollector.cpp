// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessagesCollector.h"

#include "core/messages/BatchReader.h"
#include "core/messages/ChatIndex.h"
#include "core/messages/MessageQuery.h"
#include "core/messages/RowOrder.h"
#include "core/messages/SQLiteDatabase.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace tavrin {

namespace {

using Binding = SQLiteDatabase::Binding;
using Error = MessagesCollector::Error;
using Row = SQLiteDatabase::Row;

/// How many rows beyond the recorded highest id are checked.
constexpr std::int64_t mostRowsBeyondRecord = 100;

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

/// Valid for all batches until the database changes.
struct MessagesCollector::Cache {
    struct Version {
        std::int64_t data;
        std::int64_t schema;

        bool operator==(const Version&) const = default;
    };

    /// None before the first scan.
    std::optional<Version> version;
    /// Greater row ids are damaged.
    std::int64_t highestRowID = std::numeric_limits<std::int64_t>::max();
    std::string selectList;
    ChatIndex chats;
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
            std::optional<std::string> handle = MessageQuery::handle(row, 1);
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
    cache_->chats.replace(loadChats());
    cache_->selectList = MessageQuery::selectList(*database_);
    cache_->highestRowID = highestUsedRowID().value_or(std::numeric_limits<std::int64_t>::max());
    cache_->version = version;
}

MessagesCollector::Batch
MessagesCollector::scan(std::int64_t bound, bool ascending, const Options& options) {
    assert(options.batchLimit >= 1);
    refreshCache();
    cache_->chats.setKnownHandleHints(options.knownHandleHints);
    const RowOrder order(bound, ascending, cache_->highestRowID);

    constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
    for (std::int64_t readLimit = options.batchLimit;;
         readLimit = std::min(readLimit, greatest / 2) * 2) {
        BatchReader reader(cache_->chats, options, order, readLimit);
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
