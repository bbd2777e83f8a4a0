// SPDX-License-Identifier: Apache-2.0
// A whole scan of any rows: an input describes the rows of a Messages database and the choices of
// the scan. The records must be those that a simple model of the database finds.
#include "OrvelAgent/network/JSONCoding.h"
#include "OrvelAgent/scan/IdentityEnricher.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "core/Text.h"
#include "core/messages/HandleNormalizer.h"
#include "core/messages/MessagesCollector.h"
#include "core/messages/SQLiteDatabase.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryDatabase.h"
#include "fuzz/MessagesModel.h"
#include "tools/sample/ReaderSchema.h"

#include <boost/json/parse.hpp>
#include <boost/json/value_to.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace tavrin;

namespace {

using Options = MessagesCollector::Options;
using Records = std::vector<MessageRecord>;

/// Inserts rows with one prepared statement.
class Inserter final {
public:
    Inserter(sqlite3* connection, const char* sql) {
        sqlite3_stmt* prepared = nullptr;
        check(sqlite3_prepare_v2(connection, sql, -1, &prepared, nullptr) == SQLITE_OK);
        statement_.reset(prepared);
    }

    template <typename... Values>
    void insert(const Values&... values) {
        int parameter = 0;
        (bind(++parameter, values), ...);
        check(sqlite3_step(statement_.get()) == SQLITE_DONE);
        check(sqlite3_reset(statement_.get()) == SQLITE_OK);
    }

private:
    void bind(int parameter, std::int64_t value) {
        sqlite3_bind_int64(statement_.get(), parameter, value);
    }
    void bind(int parameter, const std::optional<std::string>& value) {
        if (value) {
            sqlite3_bind_text64(
                statement_.get(),
                parameter,
                value->data(),
                value->size(),
                SQLITE_STATIC,
                SQLITE_UTF8);
        } else {
            sqlite3_bind_null(statement_.get(), parameter);
        }
    }

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// Keeps the connections and the statements from one input to the next.
class Tables final {
public:
    [[nodiscard]] std::string path() const { return database_.path(); }

    void fill(const MessagesModel& model) {
        for (Inserter* statement :
             {&begin_,
              &deleteMessages_,
              &deleteChats_,
              &deleteHandles_,
              &deleteParticipants_,
              &deleteJoins_,
              &deleteSequence_}) {
            statement->insert();
        }
        for (const auto& [rowID, id] : model.handles) {
            handles_.insert(rowID, std::optional(id));
        }
        for (const auto& [rowID, chat] : model.chats) {
            chats_.insert(rowID, std::optional(chat.guid), chat.style);
            for (const std::int64_t handle : chat.participants) {
                participants_.insert(rowID, handle);
            }
        }
        for (const auto& [rowID, message] : model.messages) {
            messages_.insert(
                rowID,
                message.guid,
                message.text,
                message.handle,
                message.body,
                message.date,
                std::int64_t{message.isFromMe},
                std::int64_t{message.hasAttachments},
                std::int64_t{message.isItem},
                message.associatedMessageType);
            for (const std::int64_t chat : message.chats) {
                joins_.insert(chat, rowID);
            }
        }
        commit_.insert();
    }

private:
    Inserter statement(const char* sql) { return {database_.connection(), sql}; }

    static MemoryDatabase emptyDatabase() {
        MemoryDatabase database("rows");
        database.execute(orvel::ReaderSchema::tables);
        database.execute(joinsAndIndexes);
        return database;
    }

    MemoryDatabase database_ = emptyDatabase();
    Inserter begin_ = statement("BEGIN");
    Inserter commit_ = statement("COMMIT");
    Inserter deleteMessages_ = statement("DELETE FROM message");
    Inserter deleteChats_ = statement("DELETE FROM chat");
    Inserter deleteHandles_ = statement("DELETE FROM handle");
    Inserter deleteParticipants_ = statement("DELETE FROM chat_handle_join");
    Inserter deleteJoins_ = statement("DELETE FROM chat_message_join");
    Inserter deleteSequence_ = statement("DELETE FROM sqlite_sequence");
    Inserter handles_ = statement("INSERT INTO handle (ROWID, id) VALUES (?, ?)");
    Inserter chats_ = statement("INSERT INTO chat (ROWID, guid, style) VALUES (?, ?, ?)");
    Inserter participants_ = statement("INSERT INTO chat_handle_join VALUES (?, ?)");
    Inserter messages_ = statement(
        "INSERT INTO message (ROWID, guid, text, handle_id, attributedBody, date, is_from_me, "
        "cache_has_attachments, item_type, associated_message_type, service) "
        "VALUES (?, ?, ?, ?, CAST(? AS BLOB), ?, ?, ?, ?, ?, 'iMessage')");
    Inserter joins_ = statement("INSERT INTO chat_message_join VALUES (?, ?)");
};

Options optionsFrom(Input& input) {
    static const auto known =
        std::make_shared<const MessagesCollector::HintSet>(MessagesCollector::HintSet{
            "4155550134",
            "ann@example.com",
            "2079460958",
            "\u0665\u0665\u0665\u0660\u0661\u0663\u0664"});
    const std::uint8_t flags = input.byte();
    Options options;
    options.mode = (flags & 1U) != 0 ? CollectionMode::WithBodies : CollectionMode::MetadataOnly;
    options.scope = (flags & 2U) != 0 ? ThreadScope::AllThreads : ThreadScope::KnownContactsOnly;
    options.knownHandleHints = known;
    constexpr std::array<std::int64_t, 4> limits = {1, 2, 5, 500};
    options.batchLimit = limits.at((flags >> 2U) & 3U);
    if ((flags & 16U) != 0) {
        options.since = Date(Seconds(1'710'003'942.0 + input.byte()));
    }
    return options;
}

struct Walk {
    Records records;
    MessagesModel::Result counts;
};

/// Collects all batches. Each one must get on.
Walk walk(MessagesCollector& collector, bool isAscending, const Options& options) {
    Walk result;
    std::int64_t bound = isAscending ? 0 : std::numeric_limits<std::int64_t>::max();
    for (int batches = 0;; ++batches) {
        check(batches <= 100);
        MessagesCollector::Batch batch = isAscending ? collector.collect(bound, options)
                                                     : collector.collectBackfill(bound, options);
        check(batch.skippedOutOfOrder == 0);
        for (MessageRecord& record : batch.records) {
            check(isAscending ? record.rowID > bound : record.rowID < bound);
            check(record.rowID >= batch.lowWatermark && record.rowID <= batch.highWatermark);
            result.records.push_back(std::move(record));
        }
        result.counts.rows += batch.scanned;
        result.counts.outOfScope += batch.skippedOutOfScope;
        result.counts.undecodable += batch.skippedUndecodable;
        result.counts.notUserContent += batch.skippedNotUserContent;
        if (!batch.hasMore) {
            return result;
        }
        check(batch.scanned > 0);
        bound = isAscending ? batch.highWatermark : batch.lowWatermark;
    }
}

/// The rows of one message have no order.
void sort(Records& records) {
    const auto key = [](const MessageRecord& record) {
        return std::tie(record.rowID, record.chatGUID, record.participants, record.isGroupThread);
    };
    std::stable_sort(
        records.begin(), records.end(), [&key](const MessageRecord& one, const auto& other) {
            return key(one) < key(other);
        });
}

void checkSame(Walk found, const MessagesModel::Result& expected) {
    sort(found.records);
    Records records = expected.records;
    sort(records);
    check(found.records == records);
    check(found.counts.rows == expected.rows);
    check(found.counts.outOfScope == expected.outOfScope);
    check(found.counts.undecodable == expected.undecodable);
    check(found.counts.notUserContent == expected.notUserContent);
}

std::shared_ptr<const orvel::ContactBridge::IdentityIndex> identities() {
    orvel::ContactBridge::IdentityIndex index;
    index["4155550134"] = {"Ann Example", {"ann@example.com"}};
    index["ann@example.com"] = {"Ann Example", {"ann@example.com"}};
    index["2079460958"] = {std::nullopt, {"ben@example.com", "b@example.com"}};
    return std::make_shared<const orvel::ContactBridge::IdentityIndex>(std::move(index));
}

/// Names and addresses belong to participants. What is sent is what was found.
void checkSent(Records records) {
    static const auto index = identities();
    static orvel::JSONEncoder encoder;
    orvel::IdentityEnricher(index).enrich(records);
    for (const MessageRecord& record : records) {
        for (const auto& [handle, name] : record.participantNames) {
            check(std::count(record.participants.begin(), record.participants.end(), handle) > 0);
            check(name == "Ann Example");
        }
        for (const std::string& handle : record.participants) {
            const auto identity = orvel::ContactBridge::identity(handle, *index);
            check(record.participantEmails.contains(handle) == identity.has_value());
        }
    }
    orvel::IngestClient::Payload payload;
    payload.source = "imessage";
    payload.records = std::make_shared<const Records>(std::move(records));
    const boost::json::value sent = boost::json::parse(encoder.encode(payload));
    const boost::json::array& array = sent.at("records").get_array();
    check(array.size() == payload.records->size());
    for (std::size_t position = 0; position < array.size(); ++position) {
        MessageRecord expected = (*payload.records)[position];
        expected.sentAt = Date(Seconds(std::floor(expected.sentAt.time_since_epoch().count())));
        check(boost::json::value_to<MessageRecord>(array[position]) == expected);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Tables tables;
    static const auto database = std::make_shared<SQLiteDatabase>(tables.path());
    // One that has seen the databases of the inputs before.
    static MessagesCollector experienced(database);
    Input input(data, size);
    Options options = optionsFrom(input);
    const MessagesModel model = MessagesModel::from(input);
    tables.fill(model);

    const MessagesModel::Result expected = model.scan(options);
    MessagesCollector collector(database);
    Walk backwards = walk(collector, false, options);
    checkSent(backwards.records);
    checkSame(std::move(backwards), expected);
    options.batchLimit = options.batchLimit == 2 ? 500 : 2;
    checkSame(walk(experienced, true, options), expected);

    const std::int64_t highest = model.messages.empty() ? 0 : model.messages.rbegin()->first;
    check(collector.highestRowID() == highest);
    check(collector.collect(highest, options).scanned == 0);
    const Date since(Seconds(1'710'003'950.0));
    check(collector.countMessages(since) == model.countMessages(since));
    return 0;
}
