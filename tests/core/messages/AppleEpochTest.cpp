// SPDX-License-Identifier: Apache-2.0
#include "core/messages/AppleEpoch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace tavrin {

namespace {

constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

Date at(double secondsSince1970) {
    return Date(Seconds(secondsSince1970));
}

} // namespace

TEST(AppleEpochTest, ZeroAndNegativeValuesAreNoDate) {
    EXPECT_EQ(AppleEpoch::date(0), std::nullopt);
    EXPECT_EQ(AppleEpoch::date(-1), std::nullopt);
    EXPECT_EQ(AppleEpoch::date(least), std::nullopt);
}

TEST(AppleEpochTest, SmallValuesAreSecondsAndLargeOnesNanoseconds) {
    EXPECT_EQ(AppleEpoch::date(1), at(978307201));
    EXPECT_EQ(AppleEpoch::date(99'999'999'999), at(99'999'999'999.0 + 978307200));
    EXPECT_EQ(AppleEpoch::date(100'000'000'000), at(978307300));
    EXPECT_EQ(AppleEpoch::date(731'696'742'500'000'000), at(1710003942.5));
    EXPECT_EQ(AppleEpoch::date(greatest), at(9223372036.854775807 + 978307200));
}

TEST(AppleEpochTest, ConvertsBackToTheRawScale) {
    EXPECT_EQ(AppleEpoch::rawNanoseconds(at(978307200)), 0);
    EXPECT_EQ(AppleEpoch::rawNanoseconds(at(0)), -978307200000000000);
    EXPECT_EQ(AppleEpoch::rawNanoseconds(at(1710003942.5)), 731'696'742'500'000'000);
    EXPECT_EQ(AppleEpoch::rawSeconds(at(978307200)), 0);
    EXPECT_EQ(AppleEpoch::rawSeconds(at(0)), -978307200);
}

TEST(AppleEpochTest, TruncatesTowardZero) {
    EXPECT_EQ(AppleEpoch::rawSeconds(at(978307200 + 1.75)), 1);
    EXPECT_EQ(AppleEpoch::rawSeconds(at(978307200 - 1.75)), -1);
    EXPECT_EQ(AppleEpoch::rawSeconds(at(978307200 - 0.5)), 0);
    EXPECT_EQ(AppleEpoch::rawNanoseconds(at(978307200 - 0.25)), -250'000'000);
}

TEST(AppleEpochTest, AcceptsInstantsUpToSixtyFourBits) {
    EXPECT_GT(AppleEpoch::rawNanoseconds(at(10'201'679'236)), 9'223'372'036'000'000'000 - 1);
    EXPECT_LT(AppleEpoch::rawNanoseconds(at(-8'245'064'836)), -9'223'372'036'000'000'000 + 1);
    EXPECT_GT(AppleEpoch::rawSeconds(at(9.2e18)), 9'199'999'999'000'000'000);
    EXPECT_LT(AppleEpoch::rawSeconds(at(-9.2e18)), -9'199'999'999'000'000'000);
}

TEST(AppleEpochTest, KnowsWhichInstantsItCanConvert) {
    EXPECT_TRUE(AppleEpoch::isRepresentable(at(1'710'003'942)));
    EXPECT_TRUE(AppleEpoch::isRepresentable(at(10'201'679'236)));
    EXPECT_TRUE(AppleEpoch::isRepresentable(at(-8'245'064'836)));
    EXPECT_TRUE(AppleEpoch::isRepresentable(at(-8'245'064'836.854776))) << "the smallest value";
    EXPECT_FALSE(AppleEpoch::isRepresentable(at(10'201'679'237)));
    EXPECT_FALSE(AppleEpoch::isRepresentable(at(-8'245'064'838)));
    EXPECT_FALSE(AppleEpoch::isRepresentable(at(std::numeric_limits<double>::infinity())));
    EXPECT_FALSE(AppleEpoch::isRepresentable(at(std::nan(""))));
}

TEST(AppleEpochDeathTest, AnInstantBeyondSixtyFourBitsEndsTheProcess) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double seconds :
         {10'201'679'237.0, -8'245'064'837.0, infinity, -infinity, std::nan("")}) {
        EXPECT_DEATH(static_cast<void>(AppleEpoch::rawNanoseconds(at(seconds))), "") << seconds;
    }
    for (const double seconds : {0x1p63 + 978307200, -0x1p63 * 2, infinity, std::nan("")}) {
        EXPECT_DEATH(static_cast<void>(AppleEpoch::rawSeconds(at(seconds))), "") << seconds;
    }
}

} // namespace tavrin
