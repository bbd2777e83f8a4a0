// SPDX-License-Identifier: Apache-2.0
#include "core/messages/RowOrder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tavrin {
namespace {

using testing::ElementsAre;

constexpr std::int64_t highest = 20;

TEST(RowOrderTest, IDsInOrderFit) {
    EXPECT_THAT(RowOrder(0, true, highest).fitting({1, 2, 5}), ElementsAre(true, true, true));
    EXPECT_THAT(RowOrder(9, false, highest).fitting({8, 2, 1}), ElementsAre(true, true, true));
}

TEST(RowOrderTest, OneWrongIDDoesNotSpoilTheOthers) {
    EXPECT_THAT(
        RowOrder(0, true, highest).fitting({1, 9, 2, 3}), ElementsAre(true, false, true, true));
    EXPECT_THAT(
        RowOrder(9, false, highest).fitting({8, 1, 7, 6}), ElementsAre(true, false, true, true));
}

TEST(RowOrderTest, ImpossibleIDsDoNotFit) {
    EXPECT_THAT(RowOrder(0, true, highest).fitting({1, 21, 2}), ElementsAre(true, false, true));
    EXPECT_THAT(RowOrder(99, false, highest).fitting({50, 20}), ElementsAre(false, true));
}

TEST(RowOrderTest, IDsThatAreNotBeyondTheBoundDoNotFit) {
    EXPECT_THAT(RowOrder(5, true, highest).fitting({3, 4, 6}), ElementsAre(false, false, true));
    EXPECT_THAT(RowOrder(5, false, highest).fitting({7, 6, 4}), ElementsAre(false, false, true));
}

TEST(RowOrderTest, TheNextIDIsGreaterGoingForwardsAndLessGoingBackwards) {
    const RowOrder forwards(0, true, highest);
    EXPECT_TRUE(forwards.canFollow(5, 6));
    EXPECT_FALSE(forwards.canFollow(5, 5));
    EXPECT_FALSE(forwards.canFollow(5, highest + 1));
    const RowOrder backwards(0, false, highest);
    EXPECT_TRUE(backwards.canFollow(5, 4));
    EXPECT_FALSE(backwards.canFollow(5, 5));
}

} // namespace
} // namespace tavrin
