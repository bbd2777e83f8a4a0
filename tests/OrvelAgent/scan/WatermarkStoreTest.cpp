// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/WatermarkStore.h"

#include "core/Errors.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <gtest/gtest.h>

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
    store.reset();
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

} // namespace orvel
