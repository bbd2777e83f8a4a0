// SPDX-License-Identifier: Apache-2.0
#include "core/Date.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tavrin {

namespace {

Date at(double secondsSince1970) {
    return Date(Seconds(secondsSince1970));
}

std::optional<double> read(std::string_view text) {
    const std::optional<Date> date = dateFromISO8601(text);
    return date ? std::optional(date->time_since_epoch().count()) : std::nullopt;
}

} // namespace

TEST(DateTest, WritesWholeSecondsInUTC) {
    EXPECT_EQ(iso8601(at(0)), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(at(1710003942)), "2024-03-09T17:05:42Z");
    EXPECT_EQ(iso8601(at(978307200)), "2001-01-01T00:00:00Z");
}

TEST(DateTest, RoundsDownOnBothSidesOf1970) {
    EXPECT_EQ(iso8601(at(1710003942.999)), "2024-03-09T17:05:42Z");
    EXPECT_EQ(iso8601(at(-0.25)), "1969-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(at(-86400)), "1969-12-31T00:00:00Z");
    EXPECT_EQ(iso8601(at(-86401)), "1969-12-30T23:59:59Z");
}

TEST(DateTest, HandlesLeapDays) {
    EXPECT_EQ(iso8601(at(951782400)), "2000-02-29T00:00:00Z");
    EXPECT_EQ(iso8601(at(951868800)), "2000-03-01T00:00:00Z");
    EXPECT_EQ(iso8601(at(4107542399)), "2100-02-28T23:59:59Z");
    EXPECT_EQ(iso8601(at(4107542400)), "2100-03-01T00:00:00Z");
    EXPECT_EQ(iso8601(at(1709164800)), "2024-02-29T00:00:00Z");
}

TEST(DateTest, WritesYearsOfAnyLength) {
    EXPECT_EQ(iso8601(at(-62135596800)), "0001-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(at(-62167219200)), "0000-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(at(-62167219201)), "-0001-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(at(253402300799)), "9999-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(at(253402300800)), "10000-01-01T00:00:00Z");
}

TEST(DateTest, WritesEveryDayOfFourHundredYearsInOrder) {
    // The next day must give a greater text, and each text must parse to the same day.
    std::string previous;
    for (int day = -135'140; day < 10'957; ++day) { // 1600 to 1999
        const double seconds = 86'400.0 * day + 3'661;
        const std::string text = iso8601(at(seconds));
        ASSERT_LT(previous, text);
        ASSERT_EQ(read(text), seconds) << text;
        previous = text;
    }
}

TEST(DateTest, ClampsInstantsBeyondTheCalendar) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(iso8601(at(infinity)), iso8601(at(9e18)));
    EXPECT_EQ(iso8601(at(1e300)), iso8601(at(9e18)));
    EXPECT_EQ(iso8601(at(-infinity)), iso8601(at(-9e18)));
    EXPECT_EQ(iso8601(at(std::nan(""))), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(at(9e18)).back(), 'Z');
    EXPECT_EQ(iso8601(at(-9e18)).front(), '-');
}

TEST(DateTest, ReadsUTCAndOffsets) {
    EXPECT_EQ(read("2024-03-09T17:05:42Z"), 1710003942);
    EXPECT_EQ(read("2024-03-09T19:05:42+02:00"), 1710003942);
    EXPECT_EQ(read("2024-03-09T11:35:42-05:30"), 1710003942);
    EXPECT_EQ(read("2024-03-09T17:05:42-00:00"), 1710003942);
    EXPECT_EQ(read("0000-01-01T00:00:00Z"), -62167219200);
}

TEST(DateTest, KeepsTheFraction) {
    EXPECT_EQ(read("2024-03-09T17:05:42.5Z"), 1710003942.5);
    EXPECT_EQ(read("2024-03-09T17:05:42.125+02:00"), 1709996742.125);
    EXPECT_EQ(read("1969-12-31T23:59:59.75Z"), -0.25);
    EXPECT_EQ(read("1970-01-01T00:00:00.12500000000000000000000000000000000001Z"), 0.125);
}

TEST(DateTest, RejectsOtherTexts) {
    for (const char* text :
         {"",
          "2024",
          "2024-03-09",
          "2024-03-09T17:05Z",
          "2024-03-09T17:05:42",
          "2024-03-09 17:05:42Z",
          "2024-03-09t17:05:42Z",
          "2024-03-09T17:05:42z",
          "2024-03-09T17:05:42.Z",
          "2024-03-09T17:05:42,5Z",
          "2024-03-09T17:05:42+0200",
          "2024-03-09T17:05:42+02",
          "2024-03-09T17:05:42+24:00",
          "2024-03-09T17:05:42+02:60",
          "2024-03-09T17:05:42ZZ",
          "2024-03-09T17:05:42Z ",
          " 2024-03-09T17:05:42Z",
          "24-03-09T17:05:42Z",
          "12024-03-09T17:05:42Z",
          "-024-03-09T17:05:42Z",
          "2024-3-09T17:05:42Z",
          "2024-13-09T17:05:42Z",
          "2024-00-09T17:05:42Z",
          "2024-02-30T17:05:42Z",
          "2023-02-29T17:05:42Z",
          "2024-03-00T17:05:42Z",
          "2024-03-09T24:00:00Z",
          "2024-03-09T17:60:42Z",
          "2024-03-09T17:05:60Z",
          "2024-03-09T17:05:4xZ",
          "2024-03-09T+7:05:42Z"}) {
        EXPECT_EQ(read(text), std::nullopt) << text;
    }
    EXPECT_EQ(read(std::string_view("2024-03-09T17:05:42Z\0", 21)), std::nullopt);
}

} // namespace tavrin
