// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>
#include <optional>

/// Converts between instants and the time scale of the Messages database, which counts from
/// 2001-01-01 00:00:00 UTC.
namespace tavrin::AppleEpoch {

/// Seconds from 1970-01-01 to 2001-01-01.
inline constexpr double offsetFromUnix = 978307200.0;

/// Raw values from here on are nanoseconds, smaller values are whole seconds.
inline constexpr std::int64_t nanosecondDivide = 100'000'000'000;

/// No value for a raw value below 1.
[[nodiscard]] std::optional<Date> date(std::int64_t raw);

/// Whether the scale reaches the instant. That is so between about 1709 and 2293.
[[nodiscard]] bool isRepresentable(Date date);

/// Truncated toward zero. The instant must be representable. Other instants are programming errors
/// and end the process.
[[nodiscard]] std::int64_t rawNanoseconds(Date date);

/// Like `rawNanoseconds()`, in whole seconds.
[[nodiscard]] std::int64_t rawSeconds(Date date);

} // namespace tavrin::AppleEpoch
