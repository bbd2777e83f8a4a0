// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/OverlayUserDefaults.h"

#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <gtest/gtest.h>

namespace orvel {

TEST(OverlayUserDefaultsTest, ReadsThroughUntilWritten) {
    test::InMemoryUserDefaults base;
    base.set("i", 1);
    base.set("s", "one");
    base.set("b", true);
    base.set("d", tavrin::Date(tavrin::Seconds(1)));
    OverlayUserDefaults overlay(base);
    EXPECT_EQ(storedValue<std::int64_t>(overlay, "i"), 1);
    EXPECT_EQ(storedValue<std::string>(overlay, "s"), "one");
    EXPECT_EQ(storedValue<bool>(overlay, "b"), true);
    EXPECT_EQ(storedValue<tavrin::Date>(overlay, "d"), tavrin::Date(tavrin::Seconds(1)));

    overlay.set("i", 2);
    overlay.set("s", "two");
    overlay.set("b", false);
    overlay.set("d", tavrin::Date(tavrin::Seconds(2)));
    EXPECT_EQ(storedValue<std::int64_t>(overlay, "i"), 2);
    EXPECT_EQ(storedValue<std::string>(overlay, "s"), "two");
    EXPECT_EQ(storedValue<bool>(overlay, "b"), false);
    EXPECT_EQ(storedValue<tavrin::Date>(overlay, "d"), tavrin::Date(tavrin::Seconds(2)));
}

TEST(OverlayUserDefaultsTest, NeverWritesThrough) {
    test::InMemoryUserDefaults base;
    base.set("i", 1);
    base.setFailsWrites(true);
    OverlayUserDefaults overlay(base);
    overlay.set("i", 2);
    overlay.remove("i");
    EXPECT_EQ(storedValue<std::int64_t>(base, "i"), 1);
}

TEST(OverlayUserDefaultsTest, RemovalsHideTheValueBelow) {
    test::InMemoryUserDefaults base;
    base.set("i", 1);
    OverlayUserDefaults overlay(base);
    overlay.remove("i");
    EXPECT_FALSE(storedValue<std::int64_t>(overlay, "i"));
}

TEST(OverlayUserDefaultsTest, AnotherTypeHidesTheValueBelow) {
    test::InMemoryUserDefaults base;
    base.set("i", 1);
    OverlayUserDefaults overlay(base);
    overlay.set("i", "text");
    EXPECT_FALSE(storedValue<std::int64_t>(overlay, "i"));
}

} // namespace orvel
