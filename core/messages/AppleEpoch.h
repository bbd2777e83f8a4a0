// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>
#include <optional>

/// Conversions between the time scale of the Messages database, which counts from
/// 2001-01-01 00:00:00 UTC, and instants.
namespace tavrin::AppleEpoch {

/// Seconds from 1970-01-01 to 2001-01-01.
inline constexpr double offsetFromUnix = 978307200.0;

/// Raw values from here on are nanoseconds, smaller ones whole seconds.
inline constexpr std::int64_t nanosecondDivide = 100'000'000'000;

/// A raw value less than 1 is no date.
[[nodiscard]] std::optional<Date> date(std::int64_t raw);

/// Truncated toward zero. The instant must fit: about the years 1709 to 2293. Anything else is a
/// programming error and ends the process.
[[nodiscard]] std::int64_t rawNanoseconds(Date date);

/// As `rawNanoseconds`, in whole seconds.
[[nodiscard]] std::int64_t rawSeconds(Date date);

} // namespace tavrin::AppleEpoch
