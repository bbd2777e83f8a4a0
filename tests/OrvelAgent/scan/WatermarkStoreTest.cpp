// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/WatermarkStore.h"

#include "core/Errors.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel {

using test::InMemoryUserDefaults;

TEST(WatermarkStoreTest, WithNothingStoredTheWalkBeginsAtTheNewestMessage) {
    InMemoryUserDefaults defaults;
    const WatermarkStore store(defaults);
    EXPECT_EQ(store.backfillCursor(), 9223372036854775807);
    EXPECT_EQ(store.watermark(), 0);
    EXPECT_FALSE(store.isBackfillDone());
    EXPECT_EQ(store.messagesLast24h(), 0);
    EXPECT_FALSE(store.messagesLast24hAt());
}

TEST(WatermarkStoreTest, ACursorThatIsNotAnIntegerReadsAsTheStart) {
    InMemoryUserDefaults defaults;
    defaults.set("messages.backfill.cursor", "12");
    EXPECT_EQ(WatermarkStore(defaults).backfillCursor(), 9223372036854775807);
}

TEST(WatermarkStoreTest, ValuesAreStoredUnderTheirKeys) {
    InMemoryUserDefaults defaults;
    WatermarkStore store(defaults);
    const tavrin::Date now{tavrin::Seconds(1'710'003'942)};
    store.setWatermark(12);
    store.setBackfillCursor(7);
    store.setBackfillDone(true);
    store.setMessagesLast24h(3, now);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "messages.rowid.watermark"), 12);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "messages.backfill.cursor"), 7);
    EXPECT_EQ(storedValue<bool>(defaults, "messages.backfill.done"), true);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "messages.last24h.count"), 3);
    EXPECT_EQ(storedValue<tavrin::Date>(defaults, "messages.last24h.at"), now);
    EXPECT_EQ(store.watermark(), 12);
    EXPECT_EQ(store.backfillCursor(), 7);
    EXPECT_TRUE(store.isBackfillDone());
    EXPECT_EQ(store.messagesLast24h(), 3);
    EXPECT_EQ(store.messagesLast24hAt(), now);
}

TEST(WatermarkStoreTest, AResetDeletesProgressAndKeepsTheDailyCount) {
    InMemoryUserDefaults defaults;
    WatermarkStore store(defaults);
    const tavrin::Date now{tavrin::Seconds(1'710'003'942)};
    store.setWatermark(12);
    store.setBackfillCursor(7);
    store.setBackfillDone(true);
    store.setMessagesLast24h(3, now);
    static_cast<void>(defaults.takeChangedKeys());
    store.reset();
    EXPECT_EQ(
        defaults.takeChangedKeys(),
        (std::vector<std::string>{
            "messages.rowid.watermark",
            "messages.backfill.cursor",
            "messages.backfill.done",
            "messages.progress.beforeContactsGap"}));
    EXPECT_EQ(store.watermark(), 0);
    EXPECT_EQ(store.backfillCursor(), 9223372036854775807);
    EXPECT_FALSE(store.isBackfillDone());
    EXPECT_EQ(store.messagesLast24h(), 3);
    EXPECT_EQ(store.messagesLast24hAt(), now);
}

TEST(WatermarkStoreTest, AFailedWriteLeavesTheOldValue) {
    InMemoryUserDefaults defaults;
    WatermarkStore store(defaults);
    store.setWatermark(12);
    defaults.setFailsWrites(true);
    EXPECT_THROW(store.setWatermark(13), tavrin::PlatformError);
    EXPECT_EQ(store.watermark(), 12);
}

namespace {

/// Progress of a finished history, and whose it is.
class WatermarkOwnerTest : public testing::Test {
protected:
    WatermarkOwnerTest() {
        EXPECT_EQ(store_.claim(owner_, 20), std::nullopt);
        store_.setWatermark(12);
        store_.setBackfillCursor(1);
        store_.setBackfillDone(true);
    }

    void expectReset() {
        EXPECT_EQ(store_.watermark(), 0);
        EXPECT_EQ(store_.backfillCursor(), WatermarkStore::cursorAtStart);
        EXPECT_FALSE(store_.isBackfillDone());
    }

    InMemoryUserDefaults defaults_;
    WatermarkStore store_{defaults_};
    WatermarkStore::Owner owner_{"uid-1", "https://api.test.example", "/home/one/chat.db"};
};

} // namespace

TEST_F(WatermarkOwnerTest, TheSameOwnerKeepsTheProgress) {
    static_cast<void>(defaults_.takeChangedKeys());
    EXPECT_EQ(store_.claim(owner_, 20), std::nullopt);
    EXPECT_EQ(store_.watermark(), 12);
    EXPECT_EQ(defaults_.takeChangedKeys(), std::vector<std::string>()) << "nothing is written";
}

TEST_F(WatermarkOwnerTest, AnOwnerThatCannotBeReadCountsAsNone) {
    for (const char* const text : {"", "no JSON", "[]", R"({"account":"uid-1"})"}) {
        defaults_.set("messages.progress.owner", text);
        EXPECT_EQ(store_.claim(owner_, 20), std::nullopt) << text;
        EXPECT_EQ(store_.watermark(), 12);
    }
}

TEST_F(WatermarkOwnerTest, TheNewOwnerIsStoredAfterTheProgressIsDeleted) {
    // If only the owner were stored, it would continue with the progress of another one.
    owner_.account = "uid-2";
    static_cast<void>(defaults_.takeChangedKeys());
    EXPECT_TRUE(store_.claim(owner_, 20));
    EXPECT_EQ(defaults_.takeChangedKeys().back(), "messages.progress.owner");
}

TEST_F(WatermarkOwnerTest, AnotherAccountStartsFromTheBeginning) {
    owner_.account = "uid-2";
    EXPECT_EQ(store_.claim(owner_, 20), "the account is another one");
    expectReset();
    store_.setWatermark(5);
    EXPECT_EQ(store_.claim(owner_, 20), std::nullopt) << "it is the owner now";
}

TEST_F(WatermarkOwnerTest, AnotherServiceStartsFromTheBeginning) {
    owner_.service = "https://127.0.0.1:8443";
    EXPECT_EQ(store_.claim(owner_, 20), "the service is another one");
    expectReset();
}

TEST_F(WatermarkOwnerTest, AnotherDatabaseStartsFromTheBeginning) {
    owner_.database = "/home/one/copy.db";
    EXPECT_EQ(store_.claim(owner_, 20), "the database is another one");
    expectReset();
}

TEST_F(WatermarkOwnerTest, ARebuiltDatabaseStartsFromTheBeginning) {
    EXPECT_EQ(store_.claim(owner_, 12), std::nullopt);
    EXPECT_EQ(
        store_.claim(owner_, 11),
        "the database was rebuilt: its highest row id is 11, but 12 was reached");
    expectReset();
}

TEST_F(WatermarkOwnerTest, AnUnknownAccountIsNotCompared) {
    owner_.account = "";
    EXPECT_EQ(store_.claim(owner_, 20), std::nullopt);
    owner_.account = "uid-2";
    EXPECT_EQ(store_.claim(owner_, 20), "the account is another one") << "the old one is kept";
}

TEST_F(WatermarkOwnerTest, ProgressOfAnEarlierVersionBelongsToWhatIsThereNow) {
    defaults_.remove("messages.progress.owner");
    EXPECT_EQ(store_.claim(owner_, 20), std::nullopt);
    EXPECT_EQ(store_.watermark(), 12);
}

TEST_F(WatermarkOwnerTest, ItReturnsToTheProgressBeforeTheContactsGap) {
    store_.rememberBeforeContactsGap();
    store_.setWatermark(15);
    store_.rememberBeforeContactsGap();
    store_.setWatermark(18);
    store_.setBackfillCursor(7);
    store_.setBackfillDone(false);
    EXPECT_TRUE(WatermarkStore(defaults_).returnBeforeContactsGap());
    EXPECT_EQ(defaults_.takeChangedKeys().back(), "messages.progress.beforeContactsGap")
        << "it is forgotten last";
    EXPECT_EQ(store_.watermark(), 12);
    EXPECT_EQ(store_.backfillCursor(), 1);
    EXPECT_TRUE(store_.isBackfillDone());
    EXPECT_FALSE(store_.returnBeforeContactsGap());
}

TEST_F(WatermarkOwnerTest, AGapBeforeTheHistoryWasReadReturnsToItsStart) {
    store_.reset();
    store_.rememberBeforeContactsGap();
    store_.setWatermark(15);
    store_.setBackfillDone(true);
    EXPECT_TRUE(store_.returnBeforeContactsGap());
    expectReset();
}

TEST_F(WatermarkOwnerTest, AResetForgetsTheContactsGap) {
    store_.rememberBeforeContactsGap();
    store_.reset();
    EXPECT_FALSE(store_.returnBeforeContactsGap());
}

TEST_F(WatermarkOwnerTest, AnUnreadableGapReadsEverythingAgain) {
    defaults_.set("messages.progress.beforeContactsGap", "12 one 1");
    EXPECT_TRUE(store_.returnBeforeContactsGap());
    expectReset();
    EXPECT_FALSE(store_.returnBeforeContactsGap());
}

} // namespace orvel
