// SPDX-License-Identifier: Apache-2.0
#include "service/records/RecordStore.h"

#include "service/support/ServiceError.h"
#include "tests/service/ServiceTest.h"

#include <sqlite3.h>

#include <fstream>

namespace orvel::test {
namespace {

using service::RecordStore;
using service::ServiceError;

RecordStore::Item item(const std::string& guid) {
    return {guid, boost::json::serialize(recordJSON(guid))};
}

class RecordStoreTest : public testing::Test {
protected:
    [[nodiscard]] bool isRefused() const {
        try {
            const RecordStore store(file_);
            return false;
        } catch (const ServiceError&) {
            return true;
        }
    }

    TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_ / "store.sqlite";
};

TEST_F(RecordStoreTest, ReturnsTheLatestFirst) {
    RecordStore store(file_);
    store.add({"mac/1", 10, {item("a"), item("b")}});
    store.add({"mac/2", 20, {item("b"), item("c")}});

    const auto batches = store.latestBatches(10);
    ASSERT_EQ(2U, batches.size());
    EXPECT_EQ("mac/2", batches[0].client);
    EXPECT_EQ(20, batches[0].watermark);
    EXPECT_EQ(2, batches[0].records);
    EXPECT_EQ(1, batches[0].newRecords);
    EXPECT_EQ("mac/1", batches[1].client);

    const auto records = store.latestRecords(2);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ("c", records[0].guid);
    EXPECT_EQ("b", records[1].guid);
}

TEST_F(RecordStoreTest, DistinguishesGuidsByCaseAndAfterNUL) {
    RecordStore store(file_);
    const std::string withNUL("a\0b", 3);

    EXPECT_EQ(3, store.add({"mac/1", 1, {item("a"), item("A"), item(withNUL)}}));
}

TEST_F(RecordStoreTest, StoresNothingOfAFailedBatch) {
    RecordStore store(file_);
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file_.c_str(), &database));
    const auto* refuseB = "CREATE TRIGGER refuse BEFORE INSERT ON records WHEN new.guid = 'b'"
                          " BEGIN SELECT raise(ABORT, 'no'); END";
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, refuseB, nullptr, nullptr, nullptr));

    EXPECT_THROW(store.add({"mac/1", 1, {item("a"), item("b")}}), ServiceError);

    EXPECT_EQ(0, store.totals().records);
    EXPECT_EQ(0, store.totals().batches);
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, "DROP TRIGGER refuse", nullptr, nullptr, nullptr));
    sqlite3_close(database);
    EXPECT_EQ(2, store.add({"mac/1", 1, {item("a"), item("b")}}));
}

TEST_F(RecordStoreTest, CreatesTheDirectoryOfItsFile) {
    file_ = directory_ / "deep/down/store.sqlite";

    const RecordStore store(file_);

    EXPECT_TRUE(std::filesystem::exists(file_));
}

TEST_F(RecordStoreTest, RefusesAFileThatIsNotAStore) {
    std::ofstream(file_) << std::string(5000, 'x');

    EXPECT_TRUE(isRefused());
}

TEST_F(RecordStoreTest, RefusesAStoreOfAnotherVersion) {
    { const RecordStore store(file_); }
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file_.c_str(), &database));
    EXPECT_EQ(
        SQLITE_OK, sqlite3_exec(database, "PRAGMA user_version = 2", nullptr, nullptr, nullptr));
    sqlite3_close(database);

    EXPECT_TRUE(isRefused());
}

} // namespace
} // namespace orvel::test
