// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {

/// A length of time in seconds, with fractions.
using Seconds = std::chrono::duration<double>;

/// An instant, in seconds since 1970-01-01 00:00:00 UTC. A double, because 64 bits of nanoseconds
/// end in the year 2262, and the Messages database may contain any value.
using Date = std::chrono::time_point<std::chrono::system_clock, Seconds>;

/// The instant as ISO 8601 internet date-time in UTC with whole seconds, rounded down, for example
/// 2024-03-09T17:05:42Z. Years outside 0 to 9999 get as many digits as they need. Instants beyond
/// 64 bits of seconds are clamped, and not-a-number is written as 1970.
[[nodiscard]] std::string iso8601(Date date);

/// Reads ISO 8601 internet date-time: a date, "T", a time with whole seconds, an optional fraction
/// (kept), and "Z" or an offset such as +02:00. Anything else gives no value.
[[nodiscard]] std::optional<Date> dateFromISO8601(std::string_view text);

} // namespace tavrin
