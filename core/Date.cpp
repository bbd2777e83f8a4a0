// SPDX-License-Identifier: Apache-2.0
#include "core/Date.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace tavrin {

namespace {

/// The whole second at or before the instant, clamped so that its day fits into 64 bits.
std::chrono::duration<std::int64_t> floorToSeconds(Date date) {
    constexpr double limit = 9e18;
    const double seconds = date.time_since_epoch().count();
    return std::chrono::duration<std::int64_t>(
        std::isnan(seconds)
            ? 0
            : static_cast<std::int64_t>(std::floor(std::clamp(seconds, -limit, limit))));
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Whether the text equals the form, in which a zero stands for any digit.
bool hasForm(std::string_view text, std::string_view form) {
    return std::equal(text.begin(), text.end(), form.begin(), form.end(), [](char is, char should) {
        return should == '0' ? isDigit(is) : is == should;
    });
}

/// The text consists of digits.
template <typename Number = int>
Number number(std::string_view text) {
    Number value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

} // namespace

std::string iso8601(Date date) {
    using Days = std::chrono::duration<std::int64_t, std::chrono::days::period>;
    // The Gregorian calendar repeats after 400 years. `std::chrono` only supports years up to
    // 32767.
    constexpr std::int64_t daysPerEra = 146'097;
    const std::chrono::duration<std::int64_t> seconds = floorToSeconds(date);
    const auto days = std::chrono::floor<Days>(seconds);
    std::int64_t era = days.count() / daysPerEra;
    era -= days.count() % daysPerEra < 0 ? 1 : 0;
    const std::chrono::days dayOfEra(days.count() - era * daysPerEra);
    const std::chrono::year_month_day day{std::chrono::sys_days(dayOfEra)};
    const std::int64_t year = static_cast<int>(day.year()) + 400 * era;
    const std::chrono::hh_mm_ss time(seconds - days);

    std::array<char, 40> buffer;
    const int length = std::snprintf(
        buffer.data(),
        buffer.size(),
        "%s%04" PRId64 "-%02u-%02uT%02d:%02d:%02dZ",
        year < 0 ? "-" : "",
        year < 0 ? -year : year,
        static_cast<unsigned>(day.month()),
        static_cast<unsigned>(day.day()),
        static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()),
        static_cast<int>(time.seconds().count()));
    return {buffer.data(), static_cast<std::size_t>(length)};
}

std::optional<Date> dateFromISO8601(std::string_view text) {
    constexpr std::string_view form = "0000-00-00T00:00:00";
    const std::string_view whole = text.substr(0, form.size());
    if (!hasForm(whole, form)) {
        return std::nullopt;
    }
    text.remove_prefix(form.size());
    double fraction = 0;
    if (text.starts_with('.')) {
        const auto end = std::find_if_not(text.begin() + 1, text.end(), isDigit);
        const auto count = static_cast<std::size_t>(end - text.begin()) - 1;
        // A double does not hold more digits than this.
        const std::string_view digits = text.substr(1, std::min<std::size_t>(count, 18));
        if (digits.empty()) {
            return std::nullopt;
        }
        fraction = static_cast<double>(number<std::int64_t>(digits)) /
                   std::pow(10.0, static_cast<double>(digits.size()));
        text.remove_prefix(1 + count);
    }
    std::chrono::minutes offset{0};
    if (hasForm(text, "+00:00") || hasForm(text, "-00:00")) {
        const int hours = number(text.substr(1, 2));
        const int minutes = number(text.substr(4));
        if (hours > 23 || minutes > 59) {
            return std::nullopt;
        }
        offset = (text.front() == '-' ? -1 : 1) * std::chrono::minutes(hours * 60 + minutes);
    } else if (text != "Z") {
        return std::nullopt;
    }
    const std::chrono::year_month_day day{
        std::chrono::year(number(whole.substr(0, 4))),
        std::chrono::month(static_cast<unsigned>(number(whole.substr(5, 2)))),
        std::chrono::day(static_cast<unsigned>(number(whole.substr(8, 2))))};
    const std::chrono::hours hours(number(whole.substr(11, 2)));
    const std::chrono::minutes minutes(number(whole.substr(14, 2)));
    const std::chrono::seconds seconds(number(whole.substr(17)));
    if (!day.ok() || hours.count() > 23 || minutes.count() > 59 || seconds.count() > 59) {
        return std::nullopt;
    }
    const std::chrono::sys_seconds instant =
        std::chrono::sys_days(day) + hours + minutes + seconds - offset;
    return Date(instant.time_since_epoch() + Seconds(fraction));
}

} // namespace tavrin
