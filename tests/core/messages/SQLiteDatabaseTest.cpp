// SPDX-License-Identifier: Apache-2.0
#include "core/messages/SQLiteDatabase.h"

#include "tests/support/TemporaryDirectory.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"
#include "tests/support/messages/WritableDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <future>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>

namespace tavrin {

namespace {

using orvel::test::MessagesDatabaseBuilder;
using orvel::test::TemporaryDirectory;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StrEq;
using testing::ThrowsMessage;

using Binding = SQLiteDatabase::Binding;
using Row = SQLiteDatabase::Row;

class SQLiteDatabaseTest : public testing::Test {
protected:
    SQLiteDatabase& database() {
        if (!database_) {
            database_ = std::make_unique<SQLiteDatabase>(builder_.path());
        }
        return *database_;
    }

    std::vector<std::int64_t>
    integers(const std::string& sql, const std::vector<Binding>& bindings = {}) {
        std::vector<std::int64_t> result;
        database().query(
            sql, bindings, [&result](const Row& row) { result.push_back(row.integer(0)); });
        return result;
    }

    std::optional<std::string> text(const std::string& sql) {
        std::optional<std::string> result;
        database().query(sql, {}, [&result](const Row& row) { result = row.string(0); });
        return result;
    }

    std::optional<std::vector<std::uint8_t>> blob(const std::string& sql) {
        std::optional<std::vector<std::uint8_t>> result;
        database().query(sql, {}, [&result](const Row& row) {
            if (const auto bytes = row.blob(0)) {
                result.emplace(bytes->begin(), bytes->end());
            }
        });
        return result;
    }

    TemporaryDirectory directory_;
    MessagesDatabaseBuilder builder_{directory_ / "chat.db"};

private:
    std::unique_ptr<SQLiteDatabase> database_;
};

void write(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
}

constexpr const char* threeRows = "SELECT 1 UNION ALL SELECT 2 UNION ALL SELECT 3";

} // namespace

TEST_F(SQLiteDatabaseTest, APathThatDoesNotExistIsNotCreated) {
    const std::string path = (directory_ / "none.db").string();
    EXPECT_THAT(
        [&] { SQLiteDatabase{path}; },
        ThrowsMessage<SQLiteError>(
            StrEq("sqlite open failed (" + path + "): unable to open database file")));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SQLiteDatabaseTest, AnOpenErrorCarriesThePathAndTheMessage) {
    const std::string path = (directory_ / "none.db").string();
    try {
        SQLiteDatabase{path};
        FAIL();
    } catch (const SQLiteError& error) {
        const auto& open = std::get<SQLiteError::Open>(error.error());
        EXPECT_EQ(open.path, path);
        EXPECT_EQ(open.message, "unable to open database file");
    }
}

TEST_F(SQLiteDatabaseTest, ThePathIsPutIntoTheURIUnchanged) {
    std::filesystem::copy_file(builder_.path(), directory_ / "a b.db");
    EXPECT_TRUE(SQLiteDatabase((directory_ / "a b.db").string()).tableExists("message"));
    // SQLite decodes an escape in the path.
    EXPECT_TRUE(SQLiteDatabase((directory_ / "a%20b.db").string()).tableExists("message"));
}

TEST_F(SQLiteDatabaseTest, NothingCanBeWritten) {
    try {
        database().query("DELETE FROM message", {}, [](const Row&) {});
        FAIL();
    } catch (const SQLiteError& error) {
        EXPECT_STREQ(error.what(), "sqlite step failed: attempt to write a readonly database");
        EXPECT_EQ(
            std::get<SQLiteError::Step>(error.error()).message,
            "attempt to write a readonly database");
    }
}

TEST_F(SQLiteDatabaseTest, APrepareErrorEndsWithTheStatement) {
    const std::string sql = "SELECT x\nFROM nowhere";
    try {
        database().query(sql, {}, [](const Row&) {});
        FAIL();
    } catch (const SQLiteError& error) {
        EXPECT_STREQ(
            error.what(),
            "sqlite prepare failed: no such table: nowhere \xE2\x80\x94 SELECT x\n"
            "FROM nowhere");
        const auto& prepare = std::get<SQLiteError::Prepare>(error.error());
        EXPECT_EQ(prepare.sql, sql);
        EXPECT_EQ(prepare.message, "no such table: nowhere");
    }
}

TEST_F(SQLiteDatabaseTest, ATextWithoutAStatementCannotBePrepared) {
    EXPECT_THAT(
        [&] { integers("-- nothing"); },
        ThrowsMessage<SQLiteError>(EndsWith(" \xE2\x80\x94 -- nothing")));
}

TEST_F(SQLiteDatabaseTest, AFileThatIsNotADatabaseFailsAtItsFirstRead) {
    write(directory_ / "text.db", std::string(5000, 'x'));
    SQLiteDatabase database((directory_ / "text.db").string());
    EXPECT_THAT(
        [&] { static_cast<void>(database.tableExists("message")); },
        ThrowsMessage<SQLiteError>(
            StrEq("sqlite prepare failed: file is not a database \xE2\x80\x94 SELECT 1 FROM "
                  "sqlite_master WHERE type IN ('table','view') AND name = ? LIMIT 1")));
    EXPECT_THAT(
        [&] { static_cast<void>(database.columnExists("guid", "message")); },
        ThrowsMessage<SQLiteError>(
            EndsWith("file is not a database \xE2\x80\x94 PRAGMA table_info(message)")));
}

TEST_F(SQLiteDatabaseTest, AnEmptyFileIsAnEmptyDatabase) {
    write(directory_ / "empty.db", "");
    SQLiteDatabase database((directory_ / "empty.db").string());
    EXPECT_FALSE(database.tableExists("message"));
    EXPECT_FALSE(database.columnExists("guid", "message"));
}

TEST_F(SQLiteDatabaseTest, RowsComeInOrder) {
    EXPECT_THAT(integers(threeRows), ElementsAre(1, 2, 3));
    EXPECT_THAT(integers("SELECT 1 WHERE 0"), IsEmpty());
}

TEST_F(SQLiteDatabaseTest, BindsInOrder) {
    constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
    std::vector<std::string> seen;
    const std::array bindings = {
        Binding::text("one"), Binding::integer(greatest), Binding::text("")};
    database().query("SELECT ?, ?, ?, typeof(?3)", bindings, [&seen](const Row& row) {
        seen = {*row.string(0), *row.string(1), *row.string(2), *row.string(3)};
    });
    EXPECT_THAT(seen, ElementsAre("one", "9223372036854775807", "", "text"));
}

TEST_F(SQLiteDatabaseTest, ABoundTextEndsAtItsFirstNUL) {
    EXPECT_THAT(
        integers("SELECT length(CAST(? AS BLOB))", {Binding::text(std::string("ab\0c", 4))}),
        ElementsAre(2));
}

TEST_F(SQLiteDatabaseTest, AnUnboundParameterIsNULLInEveryRun) {
    const std::string sql = "SELECT ? IS NULL";
    EXPECT_THAT(integers(sql, {Binding::integer(1)}), ElementsAre(0));
    EXPECT_THAT(integers(sql), ElementsAre(1));
}

TEST_F(SQLiteDatabaseTest, NULLReadsAsZeroOrNoValue) {
    bool isNull = false;
    database().query("SELECT NULL, 7", {}, [&isNull](const Row& row) {
        isNull = row.isNull(0) && !row.isNull(1);
        EXPECT_EQ(row.integer(0), 0);
        EXPECT_EQ(row.string(0), std::nullopt);
        EXPECT_FALSE(row.blob(0).has_value());
    });
    EXPECT_TRUE(isNull);
}

TEST_F(SQLiteDatabaseTest, AnEmptyTextIsAValueAndAnEmptyBlobIsNot) {
    EXPECT_EQ(text("SELECT ''"), "");
    EXPECT_EQ(blob("SELECT x''"), std::nullopt);
    EXPECT_EQ(blob("SELECT ''"), std::nullopt);
    EXPECT_THAT(blob("SELECT x'00FF'").value(), ElementsAre(0x00, 0xFF));
}

TEST_F(SQLiteDatabaseTest, IntegersKeepSixtyFourBits) {
    EXPECT_THAT(
        integers("SELECT 9223372036854775807 UNION ALL SELECT -9223372036854775808"),
        ElementsAre(
            std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()));
    EXPECT_THAT(integers("SELECT 'text'"), ElementsAre(0));
    EXPECT_THAT(integers("SELECT 2.9"), ElementsAre(2));
}

TEST_F(SQLiteDatabaseTest, OtherTypesReadAsTheirText) {
    EXPECT_EQ(text("SELECT 42"), "42");
    EXPECT_EQ(text("SELECT 1.5"), "1.5");
    EXPECT_EQ(text("SELECT x'6162'"), "ab");
}

TEST_F(SQLiteDatabaseTest, IllFormedTextIsRepaired) {
    EXPECT_EQ(
        text("SELECT CAST(x'61FF62' AS TEXT)"),
        "a\xEF\xBF\xBD"
        "b");
    EXPECT_EQ(text("SELECT CAST(x'F09F' AS TEXT)"), "\xEF\xBF\xBD");
    EXPECT_EQ(text("SELECT CAST(x'C3A4' AS TEXT)"), "\xC3\xA4");
}

TEST_F(SQLiteDatabaseTest, AnEmbeddedNULDoesNotEndAText) {
    EXPECT_EQ(text("SELECT CAST(x'610062' AS TEXT)"), std::string("a\0b", 3));
}

TEST_F(SQLiteDatabaseTest, ExceptionsOfTheCallbackPassThrough) {
    int rows = 0;
    EXPECT_THAT(
        [&] {
            database().query(threeRows, {}, [&rows](const Row&) {
                ++rows;
                throw std::runtime_error("enough");
            });
        },
        ThrowsMessage<std::runtime_error>(StrEq("enough")));
    EXPECT_EQ(rows, 1);
    // The next run starts from the first row.
    EXPECT_THAT(integers(threeRows), ElementsAre(1, 2, 3));
}

TEST_F(SQLiteDatabaseTest, ARunEndedByAnExceptionHoldsNoLock) {
    EXPECT_THROW(
        database().query(
            "SELECT * FROM sqlite_master", {}, [](const Row&) { throw std::bad_alloc(); }),
        std::bad_alloc);
    EXPECT_NO_THROW(builder_.addHandle("ann@example.com"));
}

TEST_F(SQLiteDatabaseTest, AFinishedRunHoldsNoLockAndSeesLaterRows) {
    const std::string sql = "SELECT ROWID FROM handle";
    EXPECT_THAT(integers(sql), IsEmpty());
    builder_.addHandle("ann@example.com");
    EXPECT_THAT(integers(sql), ElementsAre(1));
}

TEST_F(SQLiteDatabaseTest, ALockedDatabaseIsAnErrorAndNotTheEndOfTheRows) {
    builder_.execute("PRAGMA journal_mode = DELETE");
    builder_.addHandle("ann@example.com");
    const std::string sql = "SELECT ROWID FROM handle";
    EXPECT_THAT(integers(sql), ElementsAre(1));
    builder_.execute("BEGIN EXCLUSIVE");
    EXPECT_THAT(
        [&] { integers(sql); },
        ThrowsMessage<SQLiteError>(StrEq("sqlite step failed: database is locked")));
    builder_.execute("COMMIT");
    EXPECT_THAT(integers(sql), ElementsAre(1));
}

TEST_F(SQLiteDatabaseTest, AStatementCanBeNested) {
    std::vector<std::int64_t> seen;
    database().query(threeRows, {}, [&](const Row& outer) {
        for (const std::int64_t inner : integers(threeRows)) {
            seen.push_back(10 * outer.integer(0) + inner);
        }
    });
    EXPECT_THAT(seen, ElementsAre(11, 12, 13, 21, 22, 23, 31, 32, 33));
    EXPECT_THAT(integers(threeRows), ElementsAre(1, 2, 3));
}

TEST_F(SQLiteDatabaseTest, AStatementSurvivesAChangeOfTheSchema) {
    const std::string sql = "SELECT ROWID FROM handle";
    EXPECT_THAT(integers(sql), IsEmpty());
    builder_.execute("CREATE TABLE later (x)");
    EXPECT_THAT(integers(sql), IsEmpty());
    builder_.dropTable("handle");
    EXPECT_THROW(integers(sql), SQLiteError);
    builder_.execute("CREATE TABLE handle (id)");
    EXPECT_THAT(integers(sql), IsEmpty());
}

TEST_F(SQLiteDatabaseTest, AFailingStepIsReportedAfterTheRowsBeforeIt) {
    std::vector<std::int64_t> seen;
    EXPECT_THAT(
        [&] {
            database().query(
                "SELECT 1 UNION ALL SELECT abs(-9223372036854775808)", {}, [&seen](const Row& row) {
                    seen.push_back(row.integer(0));
                });
        },
        ThrowsMessage<SQLiteError>(StrEq("sqlite step failed: integer overflow")));
    EXPECT_THAT(seen, ElementsAre(1));
}

TEST_F(SQLiteDatabaseTest, CancellingEndsARunningQuery) {
    constexpr auto endless = "WITH RECURSIVE number (n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM "
                             "number) SELECT n FROM number";
    CancellationSource cancellation;
    database().observe(cancellation.token());
    std::promise<void> firstRow;
    std::thread cancelling([&] {
        firstRow.get_future().wait();
        cancellation.cancel();
    });
    const auto report = [&firstRow](const Row& row) {
        if (row.integer(0) == 1) {
            firstRow.set_value();
        }
    };
    EXPECT_THROW(database().query(endless, {}, report), TaskCancelled);
    cancelling.join();
    EXPECT_THROW(integers("SELECT 1"), TaskCancelled) << "a later query";
}

TEST_F(SQLiteDatabaseTest, AStatementWithTooMuchWorkIsAnError) {
    constexpr auto counting = "WITH RECURSIVE number (n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM "
                              "number WHERE n < 1000000) SELECT count(*) FROM number";
    EXPECT_THAT(integers(counting), ElementsAre(1'000'000));
    database().limitWork(100'000);
    EXPECT_THAT(
        [&] { integers(counting); },
        ThrowsMessage<SQLiteError>(StrEq("sqlite step failed: interrupted")));
    for (int statement = 0; statement < 3; ++statement) {
        EXPECT_THAT(
            integers("WITH RECURSIVE number (n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM number "
                     "WHERE n < 3000) SELECT count(*) FROM number"),
            ElementsAre(3'000))
            << "each statement counts alone";
    }
}

TEST_F(SQLiteDatabaseTest, TheSchemaOfTheFileIsNotTrusted) {
    builder_.execute("CREATE VIEW columns AS SELECT name FROM pragma_table_info('message')");
    EXPECT_THAT(
        [&] { integers("SELECT name FROM columns"); },
        ThrowsMessage<SQLiteError>(
            testing::HasSubstr("unsafe use of virtual table \"pragma_table_info\"")));
}

TEST_F(SQLiteDatabaseTest, AHugeValueIsAnErrorBeforeItTakesMemory) {
    builder_.execute("CREATE VIEW huge AS SELECT randomblob(900000000) AS x");
    EXPECT_THAT(
        [&] { blob("SELECT x FROM huge"); },
        ThrowsMessage<SQLiteError>(StrEq("sqlite step failed: string or blob too big")));
}

TEST_F(SQLiteDatabaseTest, FindsTablesAndViewsByTheirExactNames) {
    builder_.execute("CREATE VIEW people AS SELECT * FROM handle");
    EXPECT_TRUE(database().tableExists("message"));
    EXPECT_TRUE(database().tableExists("people"));
    EXPECT_FALSE(database().tableExists("Message"));
    EXPECT_FALSE(database().tableExists("message_idx_date"));
    EXPECT_FALSE(database().tableExists("x' OR '1' = '1"));
    EXPECT_FALSE(database().tableExists(""));
}

TEST_F(SQLiteDatabaseTest, FindsColumnsByTheirExactNames) {
    EXPECT_TRUE(database().columnExists("guid", "message"));
    EXPECT_TRUE(database().columnExists("associated_message_type", "message"));
    EXPECT_FALSE(database().columnExists("GUID", "message"));
    EXPECT_FALSE(database().columnExists("gui", "message"));
    EXPECT_FALSE(database().columnExists("", "message"));
    builder_.dropColumn("message", "item_type");
    EXPECT_FALSE(database().columnExists("item_type", "message"));
}

TEST_F(SQLiteDatabaseTest, AMissingTableHasNoColumns) {
    EXPECT_FALSE(database().columnExists("guid", "nowhere"));
}

TEST_F(SQLiteDatabaseTest, AViewHasColumns) {
    builder_.replaceByView("message");
    EXPECT_TRUE(database().tableExists("message"));
    EXPECT_TRUE(database().columnExists("guid", "message"));
}

TEST_F(SQLiteDatabaseTest, AMessageThatQuotesTheDatabaseIsCutAndCleaned) {
    const TemporaryDirectory directory;
    const auto path = (directory / "hostile.db").string();
    orvel::test::WritableDatabase(path).execute(
        "CREATE TABLE t (x); PRAGMA writable_schema = ON;"
        "INSERT INTO sqlite_master VALUES ('table', char(27, 155, 8238) || hex(zeroblob(1000000)),"
        " 't', 0, 'CREATE TABLE')");
    SQLiteDatabase hostile(path);
    try {
        hostile.query("SELECT x FROM t", {}, [](const Row&) {});
        ADD_FAILURE() << "no SQLiteError";
    } catch (const SQLiteError& error) {
        const std::string text = error.what();
        EXPECT_EQ(text.find('\x1B'), std::string::npos) << text.substr(0, 200);
        EXPECT_EQ(text.find("\u009B"), std::string::npos);
        EXPECT_EQ(text.find("\u202E"), std::string::npos);
        EXPECT_NE(text.find("\uFFFD\uFFFD\uFFFD00"), std::string::npos) << text.substr(0, 200);
        EXPECT_LT(text.size(), 600U);
    }
    EXPECT_THAT(
        [&] { integers("SELECT json_extract('{}', 'no \x1B path')"); },
        ThrowsMessage<SQLiteError>(
            StrEq("sqlite step failed: JSON path error near 'no \uFFFD path'")));
}

} // namespace tavrin
