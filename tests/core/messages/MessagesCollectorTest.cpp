// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessagesCollector.h"

#include "core/messages/AppleEpoch.h"
#include "core/messages/SQLiteDatabase.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"
#include "tests/support/messages/RowIDDamage.h"

#include <boost/json.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

namespace tavrin {

namespace {

using orvel::test::MessagesDatabaseBuilder;
using orvel::test::TemporaryDirectory;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
using testing::StrEq;
using testing::ThrowsMessage;

using Batch = MessagesCollector::Batch;
using ChatInfo = MessagesCollector::ChatInfo;
using Error = MessagesCollector::Error;
using HintSet = MessagesCollector::HintSet;
using Options = MessagesCollector::Options;

constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t someDate = MessagesDatabaseBuilder::someDate;

class MessagesCollectorTest : public testing::Test {
protected:
    MessagesCollector& collector() {
        if (!collector_) {
            collector_ = std::make_unique<MessagesCollector>(
                std::make_shared<SQLiteDatabase>(builder_.path()));
        }
        return *collector_;
    }

    Batch collectAll() { return collector().collect(0, everything()); }

    /// The record of the only message.
    MessageRecord onlyRecord() {
        const Batch batch = collectAll();
        EXPECT_EQ(batch.records.size(), 1U);
        return batch.records.empty() ? MessageRecord() : batch.records.front();
    }

    static Options everything() {
        Options options;
        options.scope = ThreadScope::AllThreads;
        return options;
    }

    static Options known(HintSet hints) {
        Options options;
        options.knownHandleHints = std::make_shared<const HintSet>(std::move(hints));
        return options;
    }

    void addMessages(int count) {
        for (int i = 0; i < count; ++i) {
            builder_.addMessage({});
        }
    }

    TemporaryDirectory directory_;
    MessagesDatabaseBuilder builder_{directory_ / "chat.db"};

private:
    std::unique_ptr<MessagesCollector> collector_;
};

std::vector<std::int64_t> rowIDs(const Batch& batch) {
    std::vector<std::int64_t> ids;
    for (const MessageRecord& record : batch.records) {
        ids.push_back(record.rowID);
    }
    return ids;
}

/// The SQL of the statement that could not be prepared.
template <typename Run>
std::string refusedStatement(Run run) {
    try {
        run();
    } catch (const SQLiteError& error) {
        if (const auto* prepare = std::get_if<SQLiteError::Prepare>(&error.error())) {
            return prepare->sql;
        }
        ADD_FAILURE() << error.what();
    }
    return "";
}

/// The part of an archived attributed string that the scanner reads.
std::string archived(std::string_view text) {
    return std::string("\x04\x0BstreamtypedNSString\x01+", 23) + static_cast<char>(text.size()) +
           std::string(text);
}

} // namespace

TEST_F(MessagesCollectorTest, AMissingTableIsNamed) {
    builder_.dropTable("handle");
    EXPECT_THAT(
        [&] { collector(); },
        ThrowsMessage<MessagesCollector::Error>(
            StrEq("chat.db schema unexpected: table `handle` not found. Messages may have changed "
                  "its schema \xE2\x80\x94 collection is paused rather than silently returning "
                  "nothing.")));
    builder_.dropTable("message");
    try {
        collector();
        FAIL();
    } catch (const MessagesCollector::Error& error) {
        EXPECT_EQ(std::get<Error::SchemaMissing>(error.error()).what, "table `message`");
    }
}

TEST_F(MessagesCollectorTest, TheFirstMissingColumnIsNamed) {
    const auto missing = [this] {
        try {
            collector();
        } catch (const MessagesCollector::Error& error) {
            return std::get<Error::SchemaMissing>(error.error()).what;
        }
        return std::string();
    };
    builder_.execute("DROP INDEX message_idx_date");
    builder_.execute("DROP INDEX message_idx_handle");
    builder_.dropColumn("message", "is_from_me");
    EXPECT_EQ(missing(), "column `message.is_from_me`");
    builder_.dropColumn("message", "date");
    EXPECT_EQ(missing(), "column `message.date`");
    builder_.dropColumn("message", "guid");
    EXPECT_EQ(missing(), "column `message.guid`");
}

TEST_F(MessagesCollectorTest, AViewServesAsATable) {
    const std::int64_t handle = builder_.addHandle("ann@example.com");
    builder_.addMessage({.guid = "1", .handle = handle});
    builder_.replaceByView("message");
    builder_.replaceByView("handle");
    EXPECT_THAT(onlyRecord().participants, ElementsAre("ann@example.com"));
}

TEST_F(MessagesCollectorTest, LargeTextsEndABatchEarlyInBothDirections) {
    const std::string text(std::size_t{1} << 20U, 'x');
    const std::int64_t one = builder_.addChat({.guid = "one"});
    const std::int64_t other = builder_.addChat({.guid = "other"});
    for (std::int64_t rowID = 1; rowID <= 40; ++rowID) {
        builder_.addMessage(
            {.rowID = rowID,
             .guid = std::to_string(rowID),
             .text = rowID == 30 ? std::string(std::size_t{20} << 20U, 'x') : text,
             .chats = rowID % 2 == 0 ? std::vector{one, other} : std::vector{one}});
    }
    Options options;
    options.mode = CollectionMode::WithBodies;
    options.scope = ThreadScope::AllThreads;
    options.batchLimit = 500;
    MessagesCollector collector(std::make_shared<SQLiteDatabase>(builder_.path()));
    for (const bool isForward : {true, false}) {
        std::int64_t bound = isForward ? 0 : 41;
        std::vector<std::int64_t> rows;
        for (bool hasMore = true; hasMore;) {
            const auto batch = isForward ? collector.collect(bound, options)
                                         : collector.collectBackfill(bound, options);
            // The limit, and one message in two chats beyond it.
            EXPECT_LE(batch.records.size(), 18U);
            for (const MessageRecord& record : batch.records) {
                rows.push_back(record.rowID);
            }
            bound = isForward ? batch.highWatermark : batch.lowWatermark;
            hasMore = batch.hasMore;
        }
        EXPECT_EQ(rows.size(), 60U);
        std::sort(rows.begin(), rows.end());
        rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
        EXPECT_EQ(rows.size(), 40U);
    }
}

TEST_F(MessagesCollectorTest, AHandleThatIsNoAddressIsNotCopiedIntoRecords) {
    const std::int64_t huge = builder_.addHandle(std::string(2'000, '1'));
    const std::int64_t known = builder_.addHandle("ann@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "one", .participants = {huge, known}});
    builder_.addMessage({.guid = "1", .handle = huge, .chats = {chat}});
    const auto record = onlyRecord();
    EXPECT_THAT(record.participants, ElementsAre("ann@example.com"));
    EXPECT_EQ(record.senderHandle, std::nullopt);
}

TEST_F(MessagesCollectorTest, AFileThatIsNotADatabaseIsReportedBySQLite) {
    std::ofstream(directory_ / "text.db") << std::string(5000, 'x');
    EXPECT_THROW(
        MessagesCollector(std::make_shared<SQLiteDatabase>((directory_ / "text.db").string())),
        SQLiteError);
}

TEST_F(MessagesCollectorTest, TheStatementForwardsWithEveryColumnAndASinceTime) {
    builder_.dropTable("chat_message_join");
    Options options;
    options.since = Date(Seconds(1710003942));
    EXPECT_EQ(
        refusedStatement([&] { static_cast<void>(collector().collect(0, options)); }),
        "SELECT m.ROWID, m.guid, m.date, m.is_from_me, m.service, m.cache_has_attachments, m.text, "
        "m.attributedBody, h.id, cmj.chat_id, m.associated_message_type, m.item_type\n"
        "FROM message m\n"
        "LEFT JOIN handle h ON h.ROWID = m.handle_id\n"
        "LEFT JOIN chat_message_join cmj ON cmj.message_id = m.ROWID\n"
        "WHERE m.ROWID > ? AND (m.date >= ? OR (m.date < ? AND m.date >= ?))\n"
        "ORDER BY m.ROWID ASC\n"
        "LIMIT ?");
}

TEST_F(MessagesCollectorTest, TheStatementBackwardsWithTheRequiredColumnsOnly) {
    builder_.dropTable("chat_message_join");
    for (const char* column :
         {"service",
          "cache_has_attachments",
          "attributedBody",
          "associated_message_type",
          "item_type"}) {
        builder_.dropColumn("message", column);
    }
    EXPECT_EQ(
        refusedStatement([&] { static_cast<void>(collector().collectBackfill(9, {})); }),
        "SELECT m.ROWID, m.guid, m.date, m.is_from_me, NULL, 0, m.text, "
        "NULL, h.id, cmj.chat_id, 0, 0\n"
        "FROM message m\n"
        "LEFT JOIN handle h ON h.ROWID = m.handle_id\n"
        "LEFT JOIN chat_message_join cmj ON cmj.message_id = m.ROWID\n"
        "WHERE m.ROWID < ?\n"
        "ORDER BY m.ROWID DESC\n"
        "LIMIT ?");
}

TEST_F(MessagesCollectorTest, TheStatementsOfTheCount) {
    collector();
    builder_.dropTable("message");
    const auto count = [&] {
        static_cast<void>(collector().countMessages(Date()));
    };
    EXPECT_EQ(
        refusedStatement(count),
        "SELECT COUNT(*) FROM message\nWHERE (date >= ? OR (date < ? AND date >= ?))\n");
    builder_.execute("CREATE TABLE message (item_type)");
    EXPECT_EQ(
        refusedStatement(count),
        "SELECT COUNT(*) FROM message\nWHERE (date >= ? OR (date < ? AND date >= ?))\n"
        "AND item_type = 0");
}

TEST_F(MessagesCollectorTest, TheStatementsOfTheChats) {
    const auto load = [this] {
        MessagesCollector fresh(std::make_shared<SQLiteDatabase>(builder_.path()));
        static_cast<void>(fresh.loadChats());
    };
    builder_.dropTable("chat_handle_join");
    builder_.execute("CREATE TABLE chat_handle_join (chat_id)");
    EXPECT_EQ(
        refusedStatement(load),
        "SELECT chj.chat_id, h.id\n"
        "FROM chat_handle_join chj\n"
        "JOIN handle h ON h.ROWID = chj.handle_id");
    builder_.dropColumn("chat", "guid");
    EXPECT_EQ(refusedStatement(load), "SELECT ROWID, guid, style FROM chat");
    builder_.dropColumn("chat", "style");
    EXPECT_EQ(refusedStatement(load), "SELECT ROWID, guid, 0 FROM chat");
}

TEST_F(MessagesCollectorTest, LoadsEveryChatWithItsParticipantsSorted) {
    const std::int64_t ben = builder_.addHandle("ben@example.com");
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t phone = builder_.addHandle("+14155550134");
    const std::int64_t annAgain = builder_.addHandle("ann@example.com");
    builder_.addChat(
        {.rowID = 3, .guid = "group", .participants = {ben, annAgain, phone, ann}, .style = 43});
    builder_.addChat({.rowID = 7, .guid = "nobody"});
    EXPECT_THAT(
        collector().loadChats(),
        ElementsAre(
            Pair(3, ChatInfo{"group", {"+14155550134", "ann@example.com", "ben@example.com"}, 43}),
            Pair(7, ChatInfo{"nobody", {}, 45})));
}

TEST_F(MessagesCollectorTest, AChatMayLackItsGUIDAndItsStyle) {
    builder_.addChat({.rowID = 1, .style = std::nullopt});
    EXPECT_THAT(collector().loadChats(), ElementsAre(Pair(1, ChatInfo{std::nullopt, {}, 0})));
}

TEST_F(MessagesCollectorTest, DanglingJoinsAreIgnored) {
    builder_.addChat({.rowID = 1, .guid = "a", .participants = {99}});
    builder_.execute("INSERT INTO handle (ROWID, id) VALUES (5, NULL)");
    builder_.execute("INSERT INTO chat_handle_join VALUES (1, 5), (2, 5), (NULL, 5)");
    EXPECT_THAT(collector().loadChats(), ElementsAre(Pair(1, ChatInfo{"a", {}, 45})));
}

TEST_F(MessagesCollectorTest, ADatabaseWithoutChatTablesHasNoChats) {
    builder_.addChat({.guid = "a"});
    builder_.dropTable("chat_handle_join");
    EXPECT_THAT(collector().loadChats(), IsEmpty());
    builder_.execute("CREATE TABLE chat_handle_join (chat_id, handle_id)");
    builder_.dropTable("chat");
    EXPECT_THAT(collector().loadChats(), IsEmpty());
}

TEST_F(MessagesCollectorTest, WithoutAStyleColumnEveryStyleIsZero) {
    builder_.addChat({.rowID = 1, .guid = "a", .style = 43});
    builder_.dropColumn("chat", "style");
    EXPECT_THAT(collector().loadChats(), ElementsAre(Pair(1, ChatInfo{"a", {}, 0})));
}

TEST_F(MessagesCollectorTest, AnEmptyRangeLeavesBothWatermarksAtTheBound) {
    addMessages(3);
    for (const Batch& batch :
         {collector().collect(3, everything()), collector().collect(greatest, everything())}) {
        EXPECT_THAT(batch.records, IsEmpty());
        EXPECT_EQ(batch.scanned, 0);
        EXPECT_FALSE(batch.hasMore);
    }
    EXPECT_EQ(collector().collect(3, everything()).highWatermark, 3);
    EXPECT_EQ(collector().collect(3, everything()).lowWatermark, 3);
    EXPECT_EQ(collector().collectBackfill(1, everything()).highWatermark, 1);
    EXPECT_EQ(collector().collectBackfill(1, everything()).lowWatermark, 1);
}

TEST_F(MessagesCollectorTest, CollectingForwardsReturnsAscendingRowsAfterTheBound) {
    addMessages(5);
    const Batch batch = collector().collect(2, everything());
    EXPECT_THAT(rowIDs(batch), ElementsAre(3, 4, 5));
    EXPECT_EQ(batch.lowWatermark, 3);
    EXPECT_EQ(batch.highWatermark, 5);
    EXPECT_EQ(batch.scanned, 3);
    EXPECT_FALSE(batch.hasMore);
}

TEST_F(MessagesCollectorTest, CollectingBackwardsReturnsDescendingRowsBeforeTheBound) {
    addMessages(5);
    const Batch batch = collector().collectBackfill(4, everything());
    EXPECT_THAT(rowIDs(batch), ElementsAre(3, 2, 1));
    EXPECT_EQ(batch.lowWatermark, 1);
    EXPECT_EQ(batch.highWatermark, 3);
    EXPECT_EQ(batch.scanned, 3);
    EXPECT_FALSE(batch.hasMore);
}

TEST_F(MessagesCollectorTest, BoundsMayBeTheLimitsOfTheirType) {
    builder_.addMessage({.rowID = least});
    builder_.addMessage({.rowID = greatest});
    EXPECT_THAT(rowIDs(collector().collect(least, everything())), ElementsAre(greatest));
    EXPECT_THAT(rowIDs(collector().collectBackfill(greatest, everything())), ElementsAre(least));
}

TEST_F(MessagesCollectorTest, ExactlyTheLimitIsTheEnd) {
    addMessages(3);
    Options options = everything();
    options.batchLimit = 3;
    const Batch batch = collector().collect(0, options);
    EXPECT_EQ(batch.scanned, 3);
    EXPECT_FALSE(batch.hasMore);
}

TEST_F(MessagesCollectorTest, ARowBeyondTheLimitIsAnnouncedAndNotExamined) {
    addMessages(4);
    Options options = everything();
    options.batchLimit = 3;
    const Batch forwards = collector().collect(0, options);
    EXPECT_THAT(rowIDs(forwards), ElementsAre(1, 2, 3));
    EXPECT_EQ(forwards.scanned, 3);
    EXPECT_EQ(forwards.highWatermark, 3);
    EXPECT_TRUE(forwards.hasMore);
    const Batch backwards = collector().collectBackfill(5, options);
    EXPECT_THAT(rowIDs(backwards), ElementsAre(4, 3, 2));
    EXPECT_EQ(backwards.lowWatermark, 2);
    EXPECT_TRUE(backwards.hasMore);
}

TEST_F(MessagesCollectorTest, TheLimitMayBeTheLimitOfItsType) {
    addMessages(2);
    Options options = everything();
    options.batchLimit = greatest;
    EXPECT_EQ(collector().collect(0, options).scanned, 2);
}

TEST_F(MessagesCollectorTest, BatchesJoinWithoutGapOrOverlap) {
    addMessages(10);
    Options options = everything();
    options.batchLimit = 3;
    std::vector<std::int64_t> forwards;
    for (Batch batch = collector().collect(0, options);;
         batch = collector().collect(batch.highWatermark, options)) {
        std::ranges::copy(rowIDs(batch), std::back_inserter(forwards));
        if (!batch.hasMore) {
            break;
        }
    }
    EXPECT_THAT(forwards, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    std::vector<std::int64_t> backwards;
    for (Batch batch = collector().collectBackfill(11, options);;
         batch = collector().collectBackfill(batch.lowWatermark, options)) {
        std::ranges::copy(rowIDs(batch), std::back_inserter(backwards));
        if (!batch.hasMore) {
            break;
        }
    }
    EXPECT_THAT(backwards, ElementsAre(10, 9, 8, 7, 6, 5, 4, 3, 2, 1));
}

TEST_F(MessagesCollectorTest, SkippedRowsMoveTheWatermarks) {
    builder_.addMessage({.rowID = 5, .itemType = 1});
    builder_.addMessage({.rowID = 8, .date = 0});
    const Batch batch = collectAll();
    EXPECT_THAT(batch.records, IsEmpty());
    EXPECT_EQ(batch.scanned, 2);
    EXPECT_EQ(batch.skippedNotUserContent, 2);
    EXPECT_EQ(batch.lowWatermark, 5);
    EXPECT_EQ(batch.highWatermark, 8);
}

TEST_F(MessagesCollectorTest, AMessageOfSeveralChatsComesOncePerChat) {
    const std::int64_t a = builder_.addChat({.guid = "a"});
    const std::int64_t b = builder_.addChat({.guid = "b"});
    builder_.addMessage({.chats = {a, b}});
    const Batch batch = collectAll();
    std::vector<std::string> guids;
    for (const MessageRecord& record : batch.records) {
        guids.push_back(record.chatGUID.value_or(""));
    }
    EXPECT_THAT(guids, testing::UnorderedElementsAre("a", "b"));
    EXPECT_EQ(batch.scanned, 2);
}

TEST_F(MessagesCollectorTest, RowsThatAreNotUserContentAreSkipped) {
    builder_.addMessage({.itemType = 2});
    builder_.addMessage({.itemType = -1});
    builder_.addMessage({.guid = std::nullopt});
    builder_.addMessage({.date = std::nullopt});
    builder_.addMessage({.date = -1});
    builder_.addMessage({.guid = "kept"});
    const Batch batch = collectAll();
    EXPECT_EQ(batch.skippedNotUserContent, 5);
    ASSERT_EQ(batch.records.size(), 1U);
    EXPECT_EQ(batch.records.front().guid, "kept");
}

TEST_F(MessagesCollectorTest, WithoutAnItemTypeColumnEveryRowIsUserContent) {
    builder_.addMessage({.itemType = 2});
    builder_.dropColumn("message", "item_type");
    EXPECT_EQ(collectAll().records.size(), 1U);
    EXPECT_EQ(collector().countMessages(Date()), 1);
}

TEST_F(MessagesCollectorTest, ReactionsAreKept) {
    builder_.addMessage({.associatedMessageType = 2000});
    EXPECT_EQ(onlyRecord().associatedMessageType, 2000);
}

TEST_F(MessagesCollectorTest, FillsEveryFieldOfAReceivedMessage) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t phone = builder_.addHandle("+14155550134");
    const std::int64_t chat =
        builder_.addChat({.guid = "chat-guid", .participants = {ann, phone}, .style = 43});
    builder_.addMessage(
        {.rowID = 17,
         .guid = "message-guid",
         .service = "SMS",
         .hasAttachments = true,
         .text = "Hello",
         .handle = ann,
         .chats = {chat},
         .associatedMessageType = 3});
    const MessageRecord expected{
        .guid = "message-guid",
        .rowID = 17,
        .chatGUID = "chat-guid",
        .participants = {"+14155550134", "ann@example.com"},
        .participantNames = {},
        .participantEmails = {},
        .senderHandle = "ann@example.com",
        .isFromMe = false,
        .service = "SMS",
        .sentAt = Date(Seconds(1710003942)),
        .isGroupThread = true,
        .hasAttachments = true,
        .associatedMessageType = 3,
        .body = "Hello",
        .bodyUnavailable = false};
    EXPECT_EQ(onlyRecord(), expected);
}

TEST_F(MessagesCollectorTest, TheUsersOwnMessageHasNoSender) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    builder_.addMessage({.isFromMe = true, .handle = ann});
    const MessageRecord record = onlyRecord();
    EXPECT_TRUE(record.isFromMe);
    EXPECT_EQ(record.senderHandle, std::nullopt);
    EXPECT_THAT(record.participants, ElementsAre("ann@example.com"));
}

TEST_F(MessagesCollectorTest, OnlyOneMeansFromTheUserAndWithAttachments) {
    builder_.addMessage({});
    builder_.execute("UPDATE message SET is_from_me = 2, cache_has_attachments = 2");
    EXPECT_FALSE(onlyRecord().isFromMe);
    EXPECT_FALSE(onlyRecord().hasAttachments);
}

TEST_F(MessagesCollectorTest, WithoutTheOptionalColumnsTheRecordHasTheirDefaults) {
    builder_.addMessage(
        {.service = "SMS",
         .hasAttachments = true,
         .attributedBody = archived("Hello"),
         .associatedMessageType = 3});
    for (const char* column :
         {"service", "cache_has_attachments", "attributedBody", "associated_message_type"}) {
        builder_.dropColumn("message", column);
    }
    const MessageRecord record = onlyRecord();
    EXPECT_EQ(record.service, std::nullopt);
    EXPECT_FALSE(record.hasAttachments);
    EXPECT_EQ(record.associatedMessageType, 0);
    EXPECT_EQ(record.body, std::nullopt);
    EXPECT_FALSE(record.bodyUnavailable);
}

TEST_F(MessagesCollectorTest, AMessageOutsideChatsIsNoGroupAndHasItsHandle) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    builder_.addMessage({.service = std::nullopt, .handle = ann});
    const MessageRecord record = onlyRecord();
    EXPECT_EQ(record.chatGUID, std::nullopt);
    EXPECT_EQ(record.service, std::nullopt);
    EXPECT_FALSE(record.isGroupThread);
    EXPECT_THAT(record.participants, ElementsAre("ann@example.com"));
}

TEST_F(MessagesCollectorTest, AMessageWithoutChatAndHandleHasNoParticipants) {
    builder_.addMessage({});
    EXPECT_THAT(onlyRecord().participants, IsEmpty());
    EXPECT_EQ(onlyRecord().senderHandle, std::nullopt);
}

TEST_F(MessagesCollectorTest, AChatWithoutParticipantsTakesTheHandleOfTheRow) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "a"});
    builder_.addMessage({.handle = ann, .chats = {chat}});
    EXPECT_THAT(onlyRecord().participants, ElementsAre("ann@example.com"));
    EXPECT_EQ(onlyRecord().chatGUID, "a");
}

TEST_F(MessagesCollectorTest, AMessageOfAMissingChatIsInNoChat) {
    builder_.addMessage({.chats = {99}});
    builder_.addChat({.rowID = 0, .guid = "zero"});
    EXPECT_EQ(onlyRecord().chatGUID, std::nullopt);
    builder_.execute("UPDATE chat_message_join SET chat_id = NULL");
    EXPECT_EQ(onlyRecord().chatGUID, std::nullopt);
}

TEST_F(MessagesCollectorTest, TheStyleIdentifiesGroups) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t ben = builder_.addHandle("ben@example.com");
    const auto isGroup = [&](std::optional<std::int64_t> style,
                             const std::vector<std::int64_t>& participants) {
        const std::int64_t chat =
            builder_.addChat({.guid = "a", .participants = participants, .style = style});
        const std::int64_t message = builder_.addMessage({.chats = {chat}});
        return collector().collect(message - 1, everything()).records.at(0).isGroupThread;
    };
    EXPECT_TRUE(isGroup(43, {ann}));
    EXPECT_TRUE(isGroup(43, {}));
    EXPECT_FALSE(isGroup(45, {ann, ben}));
    EXPECT_FALSE(isGroup(1, {ann, ben}));
    EXPECT_TRUE(isGroup(0, {ann, ben}));
    EXPECT_FALSE(isGroup(0, {ann}));
    EXPECT_TRUE(isGroup(std::nullopt, {ann, ben}));
}

TEST_F(MessagesCollectorTest, TheHandleOfTheRowMakesNoGroup) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "a", .style = 0});
    builder_.addMessage({.handle = ann, .chats = {chat}});
    EXPECT_FALSE(onlyRecord().isGroupThread);
}

TEST_F(MessagesCollectorTest, TheTextColumnComesBeforeTheArchive) {
    builder_.addMessage({.text = "plain", .attributedBody = archived("archived")});
    EXPECT_EQ(onlyRecord().body, "plain");
}

TEST_F(MessagesCollectorTest, WithoutTextTheArchiveIsDecoded) {
    builder_.addMessage({.attributedBody = archived("Hello")});
    builder_.addMessage({.text = "", .attributedBody = archived("Hello")});
    const Batch batch = collectAll();
    ASSERT_EQ(batch.records.size(), 2U);
    EXPECT_EQ(batch.records[0].body, "Hello");
    EXPECT_EQ(batch.records[1].body, "Hello");
    EXPECT_FALSE(batch.records[0].bodyUnavailable);
    EXPECT_EQ(batch.skippedUndecodable, 0);
}

TEST_F(MessagesCollectorTest, AnUndecodableArchiveIsCountedAndTheRecordKept) {
    builder_.addMessage({.attributedBody = "garbage"});
    const Batch batch = collectAll();
    ASSERT_EQ(batch.records.size(), 1U);
    EXPECT_EQ(batch.records.front().body, std::nullopt);
    EXPECT_TRUE(batch.records.front().bodyUnavailable);
    EXPECT_EQ(batch.skippedUndecodable, 1);
}

TEST_F(MessagesCollectorTest, WithoutTextAndArchiveThereIsNoBodyAndNothingIsMissing) {
    builder_.addMessage({});
    builder_.addMessage({.text = "", .attributedBody = ""});
    const Batch batch = collectAll();
    ASSERT_EQ(batch.records.size(), 2U);
    for (const MessageRecord& record : batch.records) {
        EXPECT_EQ(record.body, std::nullopt);
        EXPECT_FALSE(record.bodyUnavailable);
    }
    EXPECT_EQ(batch.skippedUndecodable, 0);
}

TEST_F(MessagesCollectorTest, MetadataOnlyReadsNoText) {
    builder_.addMessage({.text = "plain"});
    builder_.addMessage({.attributedBody = archived("Hello")});
    builder_.addMessage({.attributedBody = "garbage"});
    Options options = everything();
    options.mode = CollectionMode::MetadataOnly;
    const Batch batch = collector().collect(0, options);
    ASSERT_EQ(batch.records.size(), 3U);
    for (const MessageRecord& record : batch.records) {
        EXPECT_EQ(record.body, std::nullopt);
        EXPECT_FALSE(record.bodyUnavailable);
    }
    EXPECT_EQ(batch.skippedUndecodable, 0);
}

TEST_F(MessagesCollectorTest, TextOfARowThatIsOutOfScopeIsNotDecoded) {
    builder_.addMessage({.attributedBody = "garbage"});
    const Batch batch = collector().collect(0, known({}));
    EXPECT_EQ(batch.skippedOutOfScope, 1);
    EXPECT_EQ(batch.skippedUndecodable, 0);
}

TEST_F(MessagesCollectorTest, AThreadIsInScopeWhenAnyParticipantIsKnown) {
    const std::int64_t stranger = builder_.addHandle("stranger@example.com");
    const std::int64_t phone = builder_.addHandle("+1 (415) 555-0134");
    const std::int64_t mixed =
        builder_.addChat({.guid = "mixed", .participants = {stranger, phone}, .style = 43});
    const std::int64_t strange = builder_.addChat({.guid = "strange", .participants = {stranger}});
    builder_.addMessage({.handle = stranger, .chats = {mixed}});
    builder_.addMessage({.handle = stranger, .chats = {strange}});
    builder_.addMessage({.isFromMe = true, .chats = {mixed}});
    const Batch batch = collector().collect(0, known({"4155550134"}));
    EXPECT_THAT(rowIDs(batch), ElementsAre(1, 3));
    EXPECT_EQ(batch.skippedOutOfScope, 1);
    EXPECT_EQ(batch.scanned, 3);
    EXPECT_EQ(batch.highWatermark, 3);
}

TEST_F(MessagesCollectorTest, TheParticipantsOfTheChatDecideNotTheSender) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t ben = builder_.addHandle("ben@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "a", .participants = {ben}});
    builder_.addMessage({.handle = ann, .chats = {chat}});
    EXPECT_EQ(collector().collect(0, known({"ann@example.com"})).skippedOutOfScope, 1);
}

TEST_F(MessagesCollectorTest, WithoutParticipantsTheHandleOfTheRowDecides) {
    const std::int64_t ann = builder_.addHandle(" Ann@Example.com ");
    const std::int64_t empty = builder_.addChat({.guid = "a"});
    builder_.addMessage({.handle = ann});
    builder_.addMessage({.handle = ann, .chats = {empty}});
    builder_.addMessage({});
    const Batch batch = collector().collect(0, known({"ann@example.com"}));
    EXPECT_THAT(rowIDs(batch), ElementsAre(1, 2));
    EXPECT_EQ(batch.skippedOutOfScope, 1);
}

TEST_F(MessagesCollectorTest, WithoutKnownHandlesEveryRowIsOutOfScope) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "a", .participants = {ann}});
    builder_.addMessage({.handle = ann, .chats = {chat}});
    builder_.addMessage({.handle = ann});
    EXPECT_EQ(collector().collect(0, known({})).skippedOutOfScope, 2);
    EXPECT_EQ(collector().collect(0, Options()).skippedOutOfScope, 2);
}

TEST_F(MessagesCollectorTest, AHandleWithoutAHintIsNeverKnown) {
    const std::int64_t shortCode = builder_.addHandle("72975");
    builder_.addMessage({.handle = shortCode});
    EXPECT_EQ(collector().collect(0, known({"72975", ""})).skippedOutOfScope, 1);
}

TEST_F(MessagesCollectorTest, AnotherSetOfKnownHandlesCountsAtOnce) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "a", .participants = {ann}});
    builder_.addMessage({.chats = {chat}});
    EXPECT_EQ(collector().collect(0, known({"ben@example.com"})).skippedOutOfScope, 1);
    EXPECT_EQ(collector().collect(0, known({"ann@example.com"})).skippedOutOfScope, 0);
    EXPECT_EQ(collector().collect(0, Options()).skippedOutOfScope, 1);
}

TEST_F(MessagesCollectorTest, RowsThatAreNoUserContentAreNotCountedAsOutOfScope) {
    builder_.addMessage({.itemType = 1});
    const Batch batch = collector().collect(0, known({}));
    EXPECT_EQ(batch.skippedNotUserContent, 1);
    EXPECT_EQ(batch.skippedOutOfScope, 0);
}

TEST_F(MessagesCollectorTest, DatesAreNanosecondsOrSeconds) {
    builder_.addMessage({.date = 731'696'742'500'000'000});
    builder_.addMessage({.date = 731'696'742});
    builder_.addMessage({.date = 100'000'000'000});
    const Batch batch = collectAll();
    ASSERT_EQ(batch.records.size(), 3U);
    EXPECT_EQ(batch.records[0].sentAt, Date(Seconds(1710003942.5)));
    EXPECT_EQ(batch.records[1].sentAt, Date(Seconds(1710003942)));
    EXPECT_EQ(batch.records[2].sentAt, Date(Seconds(978307300)));
}

TEST_F(MessagesCollectorTest, ASinceTimeWorksForBothDateScales) {
    builder_.addMessage({.date = someDate - 1});
    builder_.addMessage({.date = someDate});
    builder_.addMessage({.date = someDate + 1});
    builder_.addMessage({.date = 731'696'741});
    builder_.addMessage({.date = 731'696'742});
    builder_.addMessage({.date = 99'999'999'999});
    builder_.addMessage({.date = 100'000'000'000});
    Options options = everything();
    options.since = Date(Seconds(1710003942));
    EXPECT_THAT(rowIDs(collector().collect(0, options)), ElementsAre(2, 3, 5, 6));
    EXPECT_THAT(rowIDs(collector().collectBackfill(99, options)), ElementsAre(6, 5, 3, 2));
    EXPECT_EQ(collector().countMessages(*options.since), 4);
}

TEST_F(MessagesCollectorTest, ASinceTimeBefore2001AdmitsEveryDate) {
    addMessages(2);
    Options options = everything();
    options.since = Date();
    EXPECT_EQ(collector().collect(0, options).records.size(), 2U);
}

TEST_F(MessagesCollectorTest, RowsBeforeTheSinceTimeAreNotScanned) {
    builder_.addMessage({.date = 1});
    builder_.addMessage({});
    Options options = everything();
    options.since = Date(Seconds(1710003942));
    options.batchLimit = 1;
    const Batch batch = collector().collect(0, options);
    EXPECT_EQ(batch.scanned, 1);
    EXPECT_EQ(batch.lowWatermark, 2);
    EXPECT_FALSE(batch.hasMore);
}

TEST_F(MessagesCollectorTest, TheCountOmitsRowsWithoutUserContentOrThread) {
    addMessages(3);
    builder_.addMessage({.itemType = 1});
    builder_.addMessage({.guid = std::nullopt});
    builder_.addMessage({.date = 5});
    EXPECT_EQ(collector().countMessages(Date(Seconds(1710003942))), 4);
    EXPECT_EQ(collector().countMessages(Date(Seconds(1710003943))), 0);
}

TEST_F(MessagesCollectorTest, TheHighestRowIDStaysWhenMessagesAreDeleted) {
    EXPECT_EQ(collector().highestRowID(), 0);
    addMessages(3);
    EXPECT_EQ(collector().highestRowID(), 3);
    builder_.execute("DELETE FROM message WHERE ROWID > 1");
    EXPECT_EQ(collector().highestRowID(), 3);
}

TEST_F(MessagesCollectorTest, WithoutASequenceTheHighestRowIDIsThatOfTheMessages) {
    addMessages(3);
    builder_.execute("DELETE FROM sqlite_sequence");
    EXPECT_EQ(collector().highestRowID(), 3);
}

TEST_F(MessagesCollectorTest, IllFormedTextIsRepairedInEveryFieldAndMakesValidJSON) {
    const std::int64_t handle = builder_.addHandle("a\xFF@example.com");
    const std::int64_t chat = builder_.addChat({.guid = "chat\xC3", .participants = {handle}});
    builder_.addMessage(
        {.guid = "\xF0\x9Fguid",
         .service = "\xED\xA0\x80",
         .text = "caf\xE9 \x80",
         .handle = handle,
         .chats = {chat}});
    builder_.addMessage({.guid = "next"});
    const Batch batch = collectAll();
    ASSERT_EQ(batch.records.size(), 2U);
    const MessageRecord& record = batch.records.front();
    EXPECT_EQ(record.guid, "\xEF\xBF\xBDguid");
    EXPECT_EQ(record.chatGUID, "chat\xEF\xBF\xBD");
    EXPECT_THAT(record.participants, ElementsAre("a\xEF\xBF\xBD@example.com"));
    EXPECT_EQ(record.senderHandle, "a\xEF\xBF\xBD@example.com");
    EXPECT_EQ(record.service, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(record.body, "caf\xEF\xBF\xBD \xEF\xBF\xBD");

    const std::string json = boost::json::serialize(boost::json::value_from(batch.records));
    EXPECT_EQ(
        boost::json::value_to<std::vector<MessageRecord>>(boost::json::parse(json)), batch.records);
}

TEST_F(MessagesCollectorTest, KeepsAnEmbeddedNUL) {
    builder_.addMessage({.guid = std::string("g\0g", 3), .text = std::string("before\0after", 12)});
    const MessageRecord record = onlyRecord();
    EXPECT_EQ(record.guid, std::string("g\0g", 3));
    EXPECT_EQ(record.body, std::string("before\0after", 12));
    const std::string json = boost::json::serialize(boost::json::value_from(record));
    EXPECT_EQ(boost::json::value_to<MessageRecord>(boost::json::parse(json)), record);
}

TEST_F(MessagesCollectorTest, ATextThatIsOnlyANULIsABody) {
    builder_.addMessage({.text = std::string(1, '\0')});
    EXPECT_EQ(onlyRecord().body, std::string(1, '\0'));
}

TEST_F(MessagesCollectorTest, ValuesOfUnexpectedTypesAreConverted) {
    builder_.addMessage({});
    builder_.execute(
        "UPDATE message SET guid = x'6162', text = 42, service = 1.5, item_type = 'text',"
        " attributedBody = 'words', associated_message_type = '3 or so'");
    const MessageRecord record = onlyRecord();
    EXPECT_EQ(record.guid, "ab");
    EXPECT_EQ(record.body, "42");
    EXPECT_EQ(record.service, "1.5");
    EXPECT_EQ(record.associatedMessageType, 3);
}

TEST_F(MessagesCollectorTest, ChatsThatChangeBetweenBatchesAreReadAgain) {
    const std::int64_t ann = builder_.addHandle("ann@example.com");
    builder_.addMessage({.chats = {1}});
    EXPECT_EQ(onlyRecord().chatGUID, std::nullopt);
    builder_.addChat({.rowID = 1, .guid = "a", .participants = {ann}});
    EXPECT_EQ(onlyRecord().chatGUID, "a");
    EXPECT_THAT(onlyRecord().participants, ElementsAre("ann@example.com"));
    const Options options = known({"ben@example.com"});
    EXPECT_EQ(collector().collect(0, options).skippedOutOfScope, 1);
    const std::int64_t ben = builder_.addHandle("ben@example.com");
    builder_.execute("INSERT INTO chat_handle_join VALUES (1, " + std::to_string(ben) + ")");
    EXPECT_EQ(collector().collect(0, options).skippedOutOfScope, 0);
}

TEST_F(MessagesCollectorTest, ColumnChangesBetweenBatchesAreNoticed) {
    builder_.addMessage({.service = "SMS"});
    EXPECT_EQ(onlyRecord().service, "SMS");
    builder_.dropColumn("message", "service");
    EXPECT_EQ(onlyRecord().service, std::nullopt);
    builder_.execute("ALTER TABLE message ADD COLUMN service TEXT DEFAULT 'RCS'");
    EXPECT_EQ(onlyRecord().service, "RCS");
}

TEST_F(MessagesCollectorTest, WithoutItsTableNoChatIsLeft) {
    builder_.addChat({.rowID = 1, .guid = "a"});
    builder_.addMessage({.chats = {1}});
    EXPECT_EQ(onlyRecord().chatGUID, "a");
    builder_.dropTable("chat");
    EXPECT_EQ(onlyRecord().chatGUID, std::nullopt);
}

TEST_F(MessagesCollectorTest, AFailedBatchDoesNotAffectTheNext) {
    builder_.addMessage({});
    EXPECT_EQ(collectAll().scanned, 1);
    builder_.execute("ALTER TABLE chat_message_join RENAME TO elsewhere");
    EXPECT_THROW(static_cast<void>(collectAll()), SQLiteError);
    builder_.execute("ALTER TABLE elsewhere RENAME TO chat_message_join");
    EXPECT_EQ(collectAll().scanned, 1);
}

TEST_F(MessagesCollectorTest, ARowOnTheWrongSideOfTheBoundIsSkippedAndTheWalkEnds) {
    // A damaged index is simulated by a view whose comparison and value differ.
    builder_.addMessage({});
    builder_.dropColumn("message", "item_type");
    builder_.execute("ALTER TABLE message RENAME TO message_rows");
    builder_.execute(
        "CREATE VIEW message AS SELECT 'text' AS ROWID, guid, date, is_from_me, text, handle_id"
        " FROM message_rows");
    const Batch batch = collectAll();
    EXPECT_THAT(batch.records, IsEmpty());
    EXPECT_EQ(batch.scanned, 0);
    EXPECT_EQ(batch.skippedNotUserContent, 1);
    EXPECT_EQ(batch.skippedOutOfOrder, 1);
    EXPECT_EQ(batch.highWatermark, 0);
    EXPECT_EQ(batch.lowWatermark, 0);
    EXPECT_FALSE(batch.hasMore);
}

TEST_F(MessagesCollectorTest, TooManyRowsOutOfOrderAreAnErrorAndNotTheEnd) {
    // A damaged index is simulated by a view whose comparison and value differ.
    builder_.addMessage({});
    builder_.dropColumn("message", "item_type");
    builder_.execute("ALTER TABLE message RENAME TO message_rows");
    builder_.execute(
        "CREATE VIEW message AS WITH RECURSIVE copy(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM "
        "copy WHERE n < 150000) SELECT 'text' AS ROWID, guid, date, is_from_me, text, handle_id"
        " FROM copy, message_rows");
    Options options = everything();
    options.batchLimit = 500;
    try {
        static_cast<void>(collector().collect(0, options));
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(std::get<Error::TooManyOutOfOrder>(error.error()).rows, 128'000);
        EXPECT_STREQ(
            error.what(),
            "The Messages database is damaged: the ids of 128000 successive rows are out of order. "
            "The messages behind them cannot be read.");
    }
}

TEST_F(MessagesCollectorTest, ALastRowBeyondEveryUsedIdIsOutOfOrder) {
    addMessages(9);
    builder_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    orvel::test::changeRowID(builder_.path(), 9, 100);
    EXPECT_EQ(collector().highestRowID(), 9);
    for (const std::int64_t limit : {4, 8, 9, 20}) {
        Options options = everything();
        options.batchLimit = limit;
        const Batch backwards = collector().collectBackfill(greatest, options);
        EXPECT_EQ(backwards.highWatermark, 8) << limit;
        EXPECT_EQ(backwards.skippedOutOfOrder, 1) << limit;
        EXPECT_EQ(backwards.scanned, std::min<std::int64_t>(limit, 8));
        const Batch forwards = collector().collect(4, options);
        EXPECT_THAT(rowIDs(forwards), ElementsAre(5, 6, 7, 8)) << limit;
        EXPECT_EQ(forwards.highWatermark, 8) << limit;
        const Batch end = collector().collect(8, options);
        EXPECT_EQ(end.highWatermark, 8) << limit;
        EXPECT_EQ(end.skippedOutOfOrder, 1) << limit;
        EXPECT_FALSE(end.hasMore) << limit;
    }
}

TEST_F(MessagesCollectorTest, AnOutdatedRecordOfTheUsedIdsHidesNoMessage) {
    addMessages(9);
    for (const char* change :
         {"UPDATE sqlite_sequence SET seq = 8 WHERE name = 'message'",
          "UPDATE sqlite_sequence SET seq = 3 WHERE name = 'message'",
          "UPDATE sqlite_sequence SET seq = 0 WHERE name = 'message'",
          "DELETE FROM sqlite_sequence"}) {
        builder_.execute(change);
        const Batch batch = collectAll();
        EXPECT_EQ(batch.scanned, 9) << change;
        EXPECT_EQ(batch.skippedOutOfOrder, 0) << change;
        EXPECT_EQ(batch.highWatermark, 9) << change;
        EXPECT_EQ(collector().highestRowID(), 9) << change;
    }
}

TEST_F(MessagesCollectorTest, AnIdChangedByAProgramIsNotDamaged) {
    addMessages(9);
    builder_.execute("UPDATE message SET ROWID = 1000 WHERE ROWID = 9");
    EXPECT_EQ(collectAll().highWatermark, 1000);
    EXPECT_EQ(collector().highestRowID(), 1000);
    builder_.execute("DROP INDEX message_idx_date");
    EXPECT_EQ(collector().highestRowID(), 1000);
}

/// The row id of one message is wrong. The parameters are the wrong id and the batch limit.
class MessagesCollectorDisorderTest
    : public MessagesCollectorTest,
      public testing::WithParamInterface<std::tuple<int, std::int64_t>> {
protected:
    static constexpr int messages = 9;
    static constexpr int damaged = 5;

    MessagesCollectorDisorderTest() {
        addMessages(messages);
        builder_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
        orvel::test::changeRowID(builder_.path(), damaged, std::get<0>(GetParam()));
        options_.batchLimit = std::get<1>(GetParam());
    }

    /// The ids of all records of a walk. Its batches must be no more than the messages.
    std::vector<std::int64_t> walk(std::int64_t bound, bool ascending) {
        std::vector<std::int64_t> ids;
        for (int batches = 0; batches <= messages; ++batches) {
            const Batch batch = ascending ? collector().collect(bound, options_)
                                          : collector().collectBackfill(bound, options_);
            std::ranges::copy(rowIDs(batch), std::back_inserter(ids));
            skipped_ += batch.skippedNotUserContent;
            outOfOrder_ += batch.skippedOutOfOrder;
            bound = ascending ? batch.highWatermark : batch.lowWatermark;
            if (!batch.hasMore) {
                last_ = bound;
                return ids;
            }
        }
        ADD_FAILURE() << "The walk does not end.";
        return ids;
    }

    Options options_ = everything();
    std::int64_t skipped_ = 0;
    std::int64_t outOfOrder_ = 0;
    /// The watermark at the end of the walk.
    std::int64_t last_ = 0;
};

INSTANTIATE_TEST_SUITE_P(
    ,
    MessagesCollectorDisorderTest,
    testing::Combine(testing::Values(1, 2, 8, 9, 100), testing::Values(4, 5, 20)),
    [](const auto& test) {
        return "Id" + std::to_string(std::get<0>(test.param)) + "Limit" +
               std::to_string(std::get<1>(test.param));
    });

TEST_P(MessagesCollectorDisorderTest, ForwardsOnlyTheWrongRowIsSkipped) {
    EXPECT_THAT(walk(0, true), ElementsAre(1, 2, 3, 4, 6, 7, 8, 9));
    EXPECT_GE(outOfOrder_, 1);
    EXPECT_EQ(skipped_, outOfOrder_);
    EXPECT_EQ(last_, 9);
}

TEST_P(MessagesCollectorDisorderTest, BackwardsOnlyTheWrongRowIsSkipped) {
    EXPECT_THAT(walk(greatest, false), ElementsAre(9, 8, 7, 6, 4, 3, 2, 1));
    EXPECT_GE(outOfOrder_, 1);
    EXPECT_EQ(skipped_, outOfOrder_);
    EXPECT_EQ(last_, 1);
}

TEST_P(MessagesCollectorDisorderTest, ABatchHasAtMostTheLimit) {
    EXPECT_LE(collector().collect(0, options_).scanned, options_.batchLimit);
    EXPECT_LE(collector().collectBackfill(greatest, options_).scanned, options_.batchLimit);
}

/// In such small batches, SQLite may look for the next row behind the wrong one.
class MessagesCollectorDisorderInSmallBatchesTest : public MessagesCollectorDisorderTest {};

INSTANTIATE_TEST_SUITE_P(
    ,
    MessagesCollectorDisorderInSmallBatchesTest,
    testing::Combine(testing::Values(1, 2, 8, 9, 100), testing::Values(1, 2, 3)),
    [](const auto& test) {
        return "Id" + std::to_string(std::get<0>(test.param)) + "Limit" +
               std::to_string(std::get<1>(test.param));
    });

TEST_P(MessagesCollectorDisorderInSmallBatchesTest, TheRowsAfterTheWrongOneAreRead) {
    const std::vector<std::int64_t> forwards = walk(0, true);
    EXPECT_THAT(forwards, testing::IsSupersetOf({1, 6, 7, 8, 9}));
    EXPECT_THAT(forwards, testing::IsSubsetOf({1, 2, 3, 4, 6, 7, 8, 9}));
    EXPECT_EQ(last_, 9);
    const std::vector<std::int64_t> backwards = walk(greatest, false);
    EXPECT_THAT(backwards, testing::IsSupersetOf({9, 4, 3, 2, 1}));
    EXPECT_THAT(backwards, testing::IsSubsetOf({9, 8, 7, 6, 4, 3, 2, 1}));
    EXPECT_EQ(last_, 1);
}

TEST_P(MessagesCollectorDisorderTest, ReadToItsEndTheTableHasNothingNew) {
    EXPECT_THAT(walk(9, true), IsEmpty());
    EXPECT_EQ(last_, 9) << "later messages, from row 10, would be missed";
}

/// A message between two others belongs to several chats, of which only one is known. The parameter
/// is the batch limit.
class MessagesCollectorGroupTest : public MessagesCollectorTest,
                                   public testing::WithParamInterface<std::int64_t> {
protected:
    static constexpr int chats = 3;
    static constexpr std::int64_t shared = 3;
    static constexpr std::int64_t messages = 5;

    /// The known chat is the first or the last of the message's rows.
    void addMessagesWithKnownChat(bool isFirst) {
        known_ = builder_.addHandle("ann@example.com");
        stranger_ = builder_.addHandle("eve@example.com");
        std::vector<std::int64_t> ids;
        for (int chat = 0; chat < chats; ++chat) {
            const bool isKnown = chat == (isFirst ? 0 : chats - 1);
            ids.push_back(builder_.addChat(
                {.guid = isKnown ? "known" : "stranger",
                 .participants = {isKnown ? known_ : stranger_}}));
        }
        const std::int64_t knownChat = isFirst ? ids.front() : ids.back();
        for (std::int64_t message = 1; message <= messages; ++message) {
            builder_.addMessage(
                {.chats = message == shared ? ids : std::vector<std::int64_t>{knownChat}});
        }
    }

    /// Walks in both directions. Expects every row once, and batches that end at a whole message.
    void expectEveryRowOnce(Options options, int recordsOfSharedMessage) {
        options.batchLimit = GetParam();
        for (const bool ascending : {true, false}) {
            SCOPED_TRACE(ascending ? "forwards" : "backwards");
            std::map<std::int64_t, int> records;
            std::int64_t rows = 0;
            std::int64_t bound = ascending ? 0 : greatest;
            for (int batches = 0;; ++batches) {
                ASSERT_LT(batches, 20) << "the walk does not end";
                const Batch batch = ascending ? collector().collect(bound, options)
                                              : collector().collectBackfill(bound, options);
                EXPECT_LE(batch.scanned, std::max<std::int64_t>(GetParam(), chats));
                EXPECT_EQ(
                    batch.scanned,
                    std::ssize(batch.records) + batch.skippedOutOfScope +
                        batch.skippedNotUserContent);
                for (const std::int64_t id : rowIDs(batch)) {
                    ++records[id];
                    EXPECT_LE(id, batch.highWatermark);
                    EXPECT_GE(id, batch.lowWatermark);
                }
                rows += batch.scanned;
                bound = ascending ? batch.highWatermark : batch.lowWatermark;
                if (!batch.hasMore) {
                    break;
                }
            }
            EXPECT_EQ(bound, ascending ? messages : 1);
            EXPECT_EQ(rows, messages - 1 + chats);
            EXPECT_THAT(
                records,
                ElementsAre(
                    Pair(1, 1),
                    Pair(2, 1),
                    Pair(3, recordsOfSharedMessage),
                    Pair(4, 1),
                    Pair(5, 1)));
        }
    }

    std::int64_t known_ = 0;
    std::int64_t stranger_ = 0;
};

INSTANTIATE_TEST_SUITE_P(
    ,
    MessagesCollectorGroupTest,
    testing::Values(1, 2, 3, 4, 5, 6, 7),
    testing::PrintToStringParamName());

TEST_P(MessagesCollectorGroupTest, AMessageWhoseFirstChatIsKnownIsNotLostAtTheLimit) {
    addMessagesWithKnownChat(true);
    expectEveryRowOnce(known({"ann@example.com"}), 1);
}

TEST_P(MessagesCollectorGroupTest, AMessageWhoseLastChatIsKnownIsNotLostAtTheLimit) {
    addMessagesWithKnownChat(false);
    expectEveryRowOnce(known({"ann@example.com"}), 1);
}

TEST_P(MessagesCollectorGroupTest, AMessageOfSeveralChatsIsReadForEachOfThemAtTheLimit) {
    addMessagesWithKnownChat(true);
    expectEveryRowOnce(everything(), chats);
}

TEST_F(MessagesCollectorTest, ABatchGivesBackTheRowsOfAMessageThatDoNotAllFit) {
    const std::int64_t a = builder_.addChat({.guid = "a"});
    const std::int64_t b = builder_.addChat({.guid = "b"});
    builder_.addMessage({});
    builder_.addMessage({.attributedBody = "undecodable", .chats = {a, b}});
    Options options = everything();
    options.batchLimit = 2;
    const Batch batch = collector().collect(0, options);
    EXPECT_THAT(rowIDs(batch), ElementsAre(1));
    EXPECT_EQ(batch.scanned, 1);
    EXPECT_EQ(batch.highWatermark, 1);
    EXPECT_EQ(batch.skippedUndecodable, 0);
    EXPECT_TRUE(batch.hasMore);
}

TEST_F(MessagesCollectorTest, AMessageOfMoreChatsThanTheLimitMakesABatchOfItsOwn) {
    std::vector<std::int64_t> chats;
    for (int chat = 0; chat < 100; ++chat) {
        chats.push_back(builder_.addChat({}));
    }
    builder_.addMessage({.chats = chats});
    builder_.addMessage({});
    Options options = everything();
    options.batchLimit = 3;
    const Batch batch = collector().collect(0, options);
    EXPECT_EQ(batch.scanned, 100);
    EXPECT_EQ(batch.highWatermark, 1);
    EXPECT_TRUE(batch.hasMore);
    const Batch next = collector().collect(1, options);
    EXPECT_THAT(rowIDs(next), ElementsAre(2));
    EXPECT_FALSE(next.hasMore);
}

} // namespace tavrin
