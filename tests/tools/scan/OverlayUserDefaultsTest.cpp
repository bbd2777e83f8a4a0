// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/OverlayUserDefaults.h"

#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <gtest/gtest.h>

namespace orvel {

TEST(OverlayUserDefaultsTest, ReadsThroughUntilWritten) {
    test::InMemoryUserDefaults base;
    base.setInteger("i", 1);
    base.setString("s", "one");
    base.setBoolean("b", true);
    base.setDate("d", tavrin::Date(tavrin::Seconds(1)));
    OverlayUserDefaults overlay(base);
    EXPECT_EQ(overlay.integer("i"), 1);
    EXPECT_EQ(overlay.string("s"), "one");
    EXPECT_EQ(overlay.boolean("b"), true);
    EXPECT_EQ(overlay.date("d"), tavrin::Date(tavrin::Seconds(1)));

    overlay.setInteger("i", 2);
    overlay.setString("s", "two");
    overlay.setBoolean("b", false);
    overlay.setDate("d", tavrin::Date(tavrin::Seconds(2)));
    EXPECT_EQ(overlay.integer("i"), 2);
    EXPECT_EQ(overlay.string("s"), "two");
    EXPECT_EQ(overlay.boolean("b"), false);
    EXPECT_EQ(overlay.date("d"), tavrin::Date(tavrin::Seconds(2)));
}

TEST(OverlayUserDefaultsTest, NeverWritesThrough) {
    test::InMemoryUserDefaults base;
    base.setInteger("i", 1);
    base.setFailsWrites(true);
    OverlayUserDefaults overlay(base);
    overlay.setInteger("i", 2);
    overlay.remove("i");
    EXPECT_EQ(base.integer("i"), 1);
}

TEST(OverlayUserDefaultsTest, RemovalsHideTheValueBelow) {
    test::InMemoryUserDefaults base;
    base.setInteger("i", 1);
    OverlayUserDefaults overlay(base);
    overlay.remove("i");
    EXPECT_FALSE(overlay.integer("i"));
}

TEST(OverlayUserDefaultsTest, AnotherTypeHidesTheValueBelow) {
    test::InMemoryUserDefaults base;
    base.setInteger("i", 1);
    OverlayUserDefaults overlay(base);
    overlay.setString("i", "text");
    EXPECT_FALSE(overlay.integer("i"));
}

} // namespace orvel
