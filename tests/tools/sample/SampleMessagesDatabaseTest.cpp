// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessagesDatabase.h"

#include "core/Text.h"
#include "core/messages/AppleEpoch.h"
#include "core/messages/SQLiteDatabase.h"
#include "tests/support/TemporaryDirectory.h"
#include "tools/sample/MessagesSchema.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <variant>
#include <vector>

namespace orvel {
namespace {

namespace fs = std::filesystem;
using SampleMessagesDatabase::Error;
using SampleMessagesDatabase::Options;
using tavrin::SQLiteDatabase;

fs::path beside(fs::path path, const char* suffix) {
    return path += suffix;
}

std::int64_t number(const fs::path& path, const std::string& sql) {
    std::int64_t result = 0;
    SQLiteDatabase(path.string()).query(sql, {}, [&](const SQLiteDatabase::Row& row) {
        result = row.integer(0);
    });
    return result;
}

std::vector<std::string> texts(const fs::path& path, const std::string& sql) {
    std::vector<std::string> result;
    SQLiteDatabase(path.string()).query(sql, {}, [&](const SQLiteDatabase::Row& row) {
        result.push_back(row.string(0).value_or("NULL"));
    });
    return result;
}

/// All rows of all tables.
std::vector<std::string> contentOf(const fs::path& path) {
    std::vector<std::string> content;
    for (const std::string& table :
         texts(path, "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name")) {
        std::string row = "''";
        for (const std::string& column :
             texts(path, "SELECT name FROM pragma_table_info('" + table + "')")) {
            row += " || '|' || quote(" + column + ")";
        }
        const auto rows = texts(path, "SELECT " + row + " FROM " + table + " ORDER BY rowid");
        content.push_back(table);
        content.insert(content.end(), rows.begin(), rows.end());
    }
    return content;
}

std::vector<std::string> indexesOf(const fs::path& path) {
    return texts(
        path, "SELECT sql FROM sqlite_schema WHERE type = 'index' AND sql IS NOT NULL ORDER BY 1");
}

Options small() {
    Options options;
    options.messageCount = 300;
    return options;
}

/// A default sample, created by the first call, for tests that only read.
fs::path sample() {
    static const test::TemporaryDirectory directory;
    const fs::path path = directory / "chat.db";
    static const auto made = SampleMessagesDatabase::create(path, {});
    EXPECT_EQ(made.messageCount, 2'000);
    return path;
}

class SampleMessagesDatabaseTest : public testing::Test {
protected:
    test::TemporaryDirectory directory_;
    fs::path path_ = directory_ / "chat.db";
};

TEST_F(SampleMessagesDatabaseTest, HasTheRequestedNumberOfMessages) {
    EXPECT_EQ(number(sample(), "SELECT count(*) FROM message"), 2'000);
}

TEST_F(SampleMessagesDatabaseTest, IsIntact) {
    EXPECT_EQ(texts(sample(), "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    EXPECT_TRUE(texts(sample(), "PRAGMA foreign_key_check").empty());
}

TEST_F(SampleMessagesDatabaseTest, HasTheColumnsAndIndexesOfTheSchema) {
    EXPECT_EQ(number(sample(), "SELECT count(*) FROM pragma_table_info('message')"), 94);
    std::vector<std::string> expected(
        MessagesSchema::indexes.begin(), MessagesSchema::indexes.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(indexesOf(sample()), expected);
}

TEST_F(SampleMessagesDatabaseTest, ContainsEveryRowAsGenerated) {
    const SampleMessages messages({});
    SQLiteDatabase(sample().string())
        .query(
            "SELECT ROWID, guid, text, attributedBody, handle_id, item_type, "
            "associated_message_type FROM message",
            {},
            [&](const SQLiteDatabase::Row& row) {
                const auto message = messages.message(row.integer(0));
                ASSERT_TRUE(message);
                EXPECT_EQ(row.string(1), message->guid);
                EXPECT_EQ(row.isNull(2), !message->text);
                EXPECT_EQ(
                    row.string(2).value_or(""), tavrin::repairedUTF8(message->text.value_or("")));
                const auto blob = row.blob(3);
                EXPECT_EQ(
                    blob ? Blob(blob->begin(), blob->end()) : Blob(),
                    message->attributedBody.value_or(Blob()));
                EXPECT_EQ(row.integer(4), message->handleID);
                EXPECT_EQ(row.integer(5), message->itemType);
                EXPECT_EQ(row.integer(6), message->associatedType);
            });
}

struct RowKind {
    const char* name;
    const char* condition;
    std::int64_t atLeast = 1;
    std::int64_t atMost = 2'000;
};

constexpr RowKind rowKinds[] = {
    RowKind{"ArchiveOnly", "text IS NULL AND length(attributedBody) > 0", 800},
    RowKind{"ArchiveAndEmptyText", "text = '' AND length(attributedBody) > 0", 10, 100},
    RowKind{"Both", "length(text) > 0 AND length(attributedBody) > 0", 300},
    RowKind{"PlainText", "length(text) > 0 AND attributedBody IS NULL", 200},
    RowKind{"Neither", "text IS NULL AND attributedBody IS NULL", 10, 100},
    RowKind{"EmptyArchive", "attributedBody = x''"},
    RowKind{"KeyedArchive", "substr(attributedBody, 1, 8) = CAST('bplist00' AS BLOB)", 1, 30},
    RowKind{"LengthOfTwoBytes", "instr(attributedBody, x'84012B81') > 0", 50, 400},
    RowKind{"LengthOfFourBytes", "instr(attributedBody, x'84012B82') > 0", 1, 4},
    RowKind{"LongestLengthOfOneByte", "instr(attributedBody, x'84012B7F') > 0"},
    RowKind{"ShortestLengthOfTwoBytes", "instr(attributedBody, x'84012B818000') > 0"},
    RowKind{"LongestLengthOfTwoBytes", "instr(attributedBody, x'84012B81FFFF') > 0"},
    RowKind{"ShortestLengthOfFourBytes", "instr(attributedBody, x'84012B8200000100') > 0"},
    RowKind{
        "ImmutableRoot",
        "substr(attributedBody, 24, 18) = CAST('NSAttributedString' AS BLOB)",
        100},
    RowKind{"MutableRoot", "instr(attributedBody, CAST('NSMutableString' AS BLOB)) > 0", 500},
    RowKind{"Attachment", "cache_has_attachments = 1", 30, 200},
    RowKind{"Reaction", "associated_message_type BETWEEN 2000 AND 2005", 40, 200},
    RowKind{"RemovedReaction", "associated_message_type BETWEEN 3000 AND 3005", 1, 30},
    RowKind{"EmojiReaction", "associated_message_type = 2006 AND associated_message_emoji <> ''"},
    RowKind{"Sticker", "associated_message_type = 1000", 1, 20},
    RowKind{"Reply", "thread_originator_guid IS NOT NULL", 5, 100},
    RowKind{"Edited", "date_edited > 0", 1, 50},
    RowKind{"Retracted", "date_retracted > 0", 1, 30},
    RowKind{"NotAMessage", "item_type <> 0", 10, 100},
    RowKind{"DateInNanoseconds", "date >= 100000000000", 1'800},
    RowKind{"DateInSeconds", "date BETWEEN 1 AND 99999999999", 20, 150},
    RowKind{"NoDate", "date IS NULL", 1, 10},
    RowKind{"DateZero", "date = 0", 1, 10},
    RowKind{"DateNegative", "date < 0", 1, 10},
    RowKind{"NULInText", "instr(CAST(text AS BLOB), x'00') > 0", 1, 10},
    RowKind{"IllFormedText", "instr(CAST(text AS BLOB), x'E920') > 0", 1, 10},
    RowKind{"IllFormedArchive", "instr(attributedBody, x'FF8684') > 0", 1, 10},
    RowKind{"ArchivedEmptyText", "instr(attributedBody, x'84012B0086') > 0", 1, 10},
    RowKind{"ArchiveWithoutText", "length(attributedBody) BETWEEN 1 AND 40", 1, 10},
    RowKind{
        "CutArchive",
        "instr(attributedBody, x'84012B81') > 0 AND instr(attributedBody, x'6949') = 0",
        1,
        10},
    RowKind{"Own", "is_from_me = 1", 700, 1'100},
    RowKind{"OwnWithoutHandle", "is_from_me = 1 AND handle_id = 0", 600},
    RowKind{
        "HandleWithoutRow",
        "handle_id <> 0 AND handle_id NOT IN (SELECT ROWID FROM handle)",
        1,
        40},
    RowKind{"InNoChat", "ROWID NOT IN (SELECT message_id FROM chat_message_join)", 6, 120},
    RowKind{
        "InTwoChats",
        "(SELECT count(*) FROM chat_message_join WHERE message_id = m.ROWID) = 2",
        2,
        40},
    RowKind{
        "InAGroup",
        "EXISTS (SELECT 1 FROM chat_message_join JOIN chat c ON c.ROWID = chat_id WHERE "
        "message_id = m.ROWID AND style = 43)",
        100},
    RowKind{
        "InADirectChat",
        "EXISTS (SELECT 1 FROM chat_message_join JOIN chat c ON c.ROWID = chat_id WHERE "
        "message_id = m.ROWID AND style = 45)",
        100},
    RowKind{
        "InAChatWithoutHandles",
        "EXISTS (SELECT 1 FROM chat_message_join j WHERE message_id = m.ROWID AND chat_id NOT "
        "IN (SELECT chat_id FROM chat_handle_join))"},
    RowKind{"OtherService", "service <> 'iMessage'", 10},
};

TEST_F(SampleMessagesDatabaseTest, ContainsEveryKindOfRowInTheRightShare) {
    for (const RowKind& kind : rowKinds) {
        const std::int64_t count =
            number(sample(), std::string("SELECT count(*) FROM message m WHERE ") + kind.condition);
        EXPECT_GE(count, kind.atLeast) << kind.name;
        EXPECT_LE(count, kind.atMost) << kind.name;
    }
}

TEST_F(SampleMessagesDatabaseTest, TheNewestMessageHasTheRequestedTime) {
    const Options options;
    EXPECT_EQ(
        number(sample(), "SELECT max(date) FROM message"),
        tavrin::AppleEpoch::rawNanoseconds(options.newest));
    EXPECT_LT(
        number(sample(), "SELECT max(date) FROM message") -
            number(sample(), "SELECT min(date) FROM message WHERE date >= 100000000000"),
        std::chrono::nanoseconds(options.span).count());
}

TEST_F(SampleMessagesDatabaseTest, TheSameOptionsGiveTheSameContent) {
    SampleMessagesDatabase::create(path_, small());
    SampleMessagesDatabase::create(directory_ / "again.db", small());
    EXPECT_EQ(contentOf(path_), contentOf(directory_ / "again.db"));
}

TEST_F(SampleMessagesDatabaseTest, AnotherSeedGivesOtherContent) {
    Options other = small();
    other.content.seed = 2;
    SampleMessagesDatabase::create(path_, small());
    SampleMessagesDatabase::create(directory_ / "other.db", other);
    EXPECT_NE(contentOf(path_), contentOf(directory_ / "other.db"));
}

TEST_F(SampleMessagesDatabaseTest, TheNewestRowsAreInTheLogOnly) {
    ASSERT_TRUE(fs::exists(beside(sample(), "-wal")));
    ASSERT_TRUE(fs::exists(beside(sample(), "-shm")));
    fs::copy_file(sample(), path_);
    EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 1'900);
    EXPECT_EQ(texts(path_, "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
}

TEST_F(SampleMessagesDatabaseTest, LeavesNoLogOnRequest) {
    Options options = small();
    options.keepsLog = false;
    SampleMessagesDatabase::create(path_, options);
    EXPECT_FALSE(fs::exists(beside(path_, "-wal")));
    EXPECT_FALSE(fs::exists(beside(path_, "-shm")));
    EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 300);
}

TEST_F(SampleMessagesDatabaseTest, PutsNoMessageInTwoChatsOnRequest) {
    Options options;
    options.content.twoChatShare = 0;
    SampleMessagesDatabase::create(path_, options);
    EXPECT_EQ(
        number(path_, "SELECT count(*) FROM chat_message_join GROUP BY message_id ORDER BY 1 DESC"),
        1);
}

TEST_F(SampleMessagesDatabaseTest, OmitsTheRequestedColumns) {
    for (const std::string& column : SampleMessagesDatabase::optionalColumns) {
        Options options = small();
        options.withoutColumns = {column};
        options.overwrites = true;
        SampleMessagesDatabase::create(path_, options);
        const bool isOfChat = column.starts_with("chat.");
        EXPECT_FALSE(
            SQLiteDatabase(path_.string())
                .columnExists(isOfChat ? column.substr(5) : column, isOfChat ? "chat" : "message"))
            << column;
        EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 300) << column;
        EXPECT_EQ(texts(path_, "PRAGMA integrity_check"), std::vector<std::string>{"ok"}) << column;
    }
}

TEST_F(SampleMessagesDatabaseTest, CanOmitAllOptionalColumns) {
    Options options = small();
    options.withoutColumns = SampleMessagesDatabase::optionalColumns;
    SampleMessagesDatabase::create(path_, options);
    EXPECT_EQ(number(path_, "SELECT count(*) FROM pragma_table_info('message')"), 89);
    // An index over a missing column is missing, too.
    EXPECT_EQ(indexesOf(path_).size(), MessagesSchema::indexes.size() - 3);
}

TEST_F(SampleMessagesDatabaseTest, CreatesAnEmptyDatabase) {
    Options options;
    options.messageCount = 0;
    SampleMessagesDatabase::create(path_, options);
    EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 0);
    EXPECT_EQ(number(path_, "SELECT count(*) FROM chat"), 12);
}

TEST_F(SampleMessagesDatabaseTest, CreatesParentFolders) {
    const fs::path deep = directory_ / "Library/Messages/chat.db";
    SampleMessagesDatabase::create(deep, small());
    EXPECT_TRUE(fs::exists(deep));
}

TEST_F(SampleMessagesDatabaseTest, RefusesToOverwrite) {
    std::ofstream(path_) << "precious";
    try {
        SampleMessagesDatabase::create(path_, small());
        ADD_FAILURE() << "It wrote.";
    } catch (const Error& error) {
        EXPECT_TRUE(std::holds_alternative<Error::AlreadyExists>(error.error()));
        EXPECT_EQ(error.what(), path_.string() + " already exists.");
    }
    EXPECT_EQ(fs::file_size(path_), 8U);
}

TEST_F(SampleMessagesDatabaseTest, OverwritesOnRequestAndRemovesTheOldLog) {
    SampleMessagesDatabase::create(path_, {});
    Options options = small();
    options.overwrites = true;
    SampleMessagesDatabase::create(path_, options);
    EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 300);
}

TEST_F(SampleMessagesDatabaseTest, LeavesNoFilesOnFailure) {
    Options options = small();
    options.withoutColumns = {"nonsense"};
    EXPECT_THROW(SampleMessagesDatabase::create(path_, options), Error);
    EXPECT_TRUE(fs::is_empty(directory_.path()));
}

TEST_F(SampleMessagesDatabaseTest, AppendsNewerMessagesWhileAnotherReads) {
    const auto summary = SampleMessagesDatabase::create(path_, small());
    const std::int64_t newest = number(path_, "SELECT max(date) FROM message");
    SQLiteDatabase reader(path_.string());
    std::int64_t seen = 0;
    const auto countNew = [&](const SQLiteDatabase::Row& row) {
        seen = row.integer(0);
    };
    const std::string sql = "SELECT count(*) FROM message WHERE ROWID > ? AND (date > ? OR "
                            "date BETWEEN 1 AND 99999999999)";
    const std::vector<SQLiteDatabase::Binding> bindings = {
        SQLiteDatabase::Binding::integer(summary.lastRowID),
        SQLiteDatabase::Binding::integer(newest)};
    reader.query(sql, bindings, countNew);
    EXPECT_EQ(seen, 0);
    SampleMessagesDatabase::append(path_, {.content = {.nastyShare = 0}, .messageCount = 40});
    reader.query(sql, bindings, countNew);
    EXPECT_EQ(seen, 40);
}

TEST_F(SampleMessagesDatabaseTest, AppendingGivesTheMessagesOfALargerSample) {
    Options larger = small();
    larger.messageCount = 340;
    larger.content.chatCount = 20;
    Options smaller = larger;
    smaller.messageCount = 300;
    SampleMessagesDatabase::create(directory_ / "larger.db", larger);
    SampleMessagesDatabase::create(path_, smaller);
    SampleMessagesDatabase::append(path_, {.messageCount = 40});
    const std::string sql = "SELECT quote(ROWID) || guid || quote(text) || quote(attributedBody) "
                            "FROM message ORDER BY ROWID";
    EXPECT_EQ(texts(path_, sql), texts(directory_ / "larger.db", sql));
}

TEST_F(SampleMessagesDatabaseTest, AppendsUpToTheRequestedTime) {
    SampleMessagesDatabase::create(path_, small());
    const auto end = Options().newest + std::chrono::hours(1);
    SampleMessagesDatabase::append(path_, {.messageCount = 4, .newest = end});
    EXPECT_EQ(
        number(path_, "SELECT max(date) FROM message"), tavrin::AppleEpoch::rawNanoseconds(end));
}

TEST_F(SampleMessagesDatabaseTest, AppendsToATableWithoutTheOptionalColumns) {
    Options options = small();
    options.withoutColumns = SampleMessagesDatabase::optionalColumns;
    SampleMessagesDatabase::create(path_, options);
    SampleMessagesDatabase::append(path_, {.messageCount = 10});
    EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 310);
}

template <typename Case>
void expectNotAppended(const fs::path& path, const SampleMessagesDatabase::AppendOptions& options) {
    try {
        SampleMessagesDatabase::append(path, options);
        ADD_FAILURE() << "It appended.";
    } catch (const Error& error) {
        EXPECT_TRUE(std::holds_alternative<Case>(error.error())) << error.what();
    }
}

TEST_F(SampleMessagesDatabaseTest, DoesNotAppendToAnotherSample) {
    SampleMessagesDatabase::create(path_, small());
    expectNotAppended<Error::AnotherSample>(path_, {.content = {.seed = 2}});
    EXPECT_EQ(number(path_, "SELECT count(*) FROM message"), 300);
}

TEST_F(SampleMessagesDatabaseTest, DoesNotAppendBeforeTheNewestMessage) {
    SampleMessagesDatabase::create(path_, small());
    expectNotAppended<Error::NotLater>(path_, {.newest = Options().newest});
}

TEST_F(SampleMessagesDatabaseTest, DoesNotAppendToOtherFiles) {
    std::ofstream(path_) << "A letter, long enough not to pass for a header of any kind.\n";
    expectNotAppended<Error::Database>(path_, {});
    expectNotAppended<Error::Database>(directory_ / "missing.db", {});
}

} // namespace
} // namespace orvel
