// SPDX-License-Identifier: Apache-2.0
#include "core/Date.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace tavrin {

namespace {

constexpr std::int64_t secondsPerDay = 86'400;

struct CivilDay {
    std::int64_t year;
    int month;
    int day;
};

/// The proleptic Gregorian calendar in 400-year eras that begin on 1 March. `std::chrono` only
/// supports years up to 32767.
CivilDay civilDay(std::int64_t daysSince1970) {
    constexpr std::int64_t daysPerEra = 146'097;
    const std::int64_t days = daysSince1970 + 719'468;
    const std::int64_t era = (days >= 0 ? days : days - (daysPerEra - 1)) / daysPerEra;
    const int dayOfEra = static_cast<int>(days - era * daysPerEra);
    const int yearOfEra =
        (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const int dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int marchMonth = (5 * dayOfYear + 2) / 153;
    const int month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    return {
        era * 400 + yearOfEra + (month <= 2 ? 1 : 0),
        month,
        dayOfYear - (153 * marchMonth + 2) / 5 + 1};
}

/// The whole second at or before the instant, clamped so that its day fits into 64 bits.
std::int64_t floorToSeconds(Date date) {
    constexpr double limit = 9e18;
    const double seconds = date.time_since_epoch().count();
    return std::isnan(seconds)
               ? 0
               : static_cast<std::int64_t>(std::floor(std::clamp(seconds, -limit, limit)));
}

char* writePadded(char* out, int value, int width) {
    for (char* digit = out + width; digit != out; value /= 10) {
        *--digit = static_cast<char>('0' + value % 10);
    }
    return out + width;
}

char* writeYear(char* out, std::int64_t year) {
    if (year < 0) {
        *out++ = '-';
        year = -year;
    }
    return year <= 9'999 ? writePadded(out, static_cast<int>(year), 4)
                         : std::to_chars(out, out + 20, year).ptr;
}

/// Consumes a text from the front, part by part. After a mismatch every further match fails.
class Reader final {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    [[nodiscard]] bool matched() const { return matches_; }
    [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }
    [[nodiscard]] bool isAt(char expected) const {
        return !rest_.empty() && rest_.front() == expected;
    }

    void skip(char expected) {
        matches_ = matches_ && isAt(expected);
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
    }

    int number(std::size_t width) {
        const std::string_view digits = takeDigits(width);
        matches_ = matches_ && digits.size() == width;
        int value = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return value;
    }

    /// The digits after a decimal point.
    double fraction() {
        // A double does not hold more digits than this.
        const std::string_view digits = takeDigits(18);
        matches_ = matches_ && !digits.empty();
        takeDigits(rest_.size());
        std::int64_t value = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return static_cast<double>(value) / std::pow(10.0, static_cast<double>(digits.size()));
    }

private:
    std::string_view takeDigits(std::size_t atMost) {
        const auto isDigit = [](char c) {
            return c >= '0' && c <= '9';
        };
        const auto end = std::find_if_not(
            rest_.begin(),
            rest_.begin() + static_cast<std::ptrdiff_t>(std::min(atMost, rest_.size())),
            isDigit);
        const std::string_view digits =
            rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
        rest_.remove_prefix(digits.size());
        return digits;
    }

    std::string_view rest_;
    bool matches_ = true;
};

} // namespace

std::string iso8601(Date date) {
    const std::int64_t seconds = floorToSeconds(date);
    std::int64_t days = seconds / secondsPerDay;
    int secondOfDay = static_cast<int>(seconds % secondsPerDay);
    if (secondOfDay < 0) {
        secondOfDay += static_cast<int>(secondsPerDay);
        --days;
    }
    const CivilDay day = civilDay(days);

    std::array<char, 40> buffer;
    char* out = writeYear(buffer.data(), day.year);
    *out++ = '-';
    out = writePadded(out, day.month, 2);
    *out++ = '-';
    out = writePadded(out, day.day, 2);
    *out++ = 'T';
    out = writePadded(out, secondOfDay / 3'600, 2);
    *out++ = ':';
    out = writePadded(out, secondOfDay / 60 % 60, 2);
    *out++ = ':';
    out = writePadded(out, secondOfDay % 60, 2);
    *out++ = 'Z';
    return {buffer.data(), out};
}

std::optional<Date> dateFromISO8601(std::string_view text) {
    Reader reader(text);
    const int year = reader.number(4);
    reader.skip('-');
    const int month = reader.number(2);
    reader.skip('-');
    const int dayOfMonth = reader.number(2);
    reader.skip('T');
    const int hour = reader.number(2);
    reader.skip(':');
    const int minute = reader.number(2);
    reader.skip(':');
    const int second = reader.number(2);
    double fraction = 0;
    if (reader.isAt('.')) {
        reader.skip('.');
        fraction = reader.fraction();
    }
    int offsetMinutes = 0;
    if (reader.isAt('Z')) {
        reader.skip('Z');
    } else {
        const bool isWest = reader.isAt('-');
        reader.skip(isWest ? '-' : '+');
        const int hours = reader.number(2);
        reader.skip(':');
        const int minutes = reader.number(2);
        if (hours > 23 || minutes > 59) {
            return std::nullopt;
        }
        offsetMinutes = (isWest ? -1 : 1) * (hours * 60 + minutes);
    }
    const std::chrono::year_month_day day{
        std::chrono::year(year),
        std::chrono::month(static_cast<unsigned>(month)),
        std::chrono::day(static_cast<unsigned>(dayOfMonth))};
    if (!reader.matched() || !reader.isAtEnd() || !day.ok() || hour > 23 || minute > 59 ||
        second > 59) {
        return std::nullopt;
    }
    const std::chrono::sys_seconds whole = std::chrono::sys_days(day) + std::chrono::hours(hour) +
                                           std::chrono::minutes(minute - offsetMinutes) +
                                           std::chrono::seconds(second);
    return Date(whole.time_since_epoch() + Seconds(fraction));
}

} // namespace tavrin
