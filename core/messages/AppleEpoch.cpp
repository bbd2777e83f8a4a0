// SPDX-License-Identifier: Apache-2.0
#include "core/messages/AppleEpoch.h"

#include <cstdlib>

namespace tavrin::AppleEpoch {

namespace {

constexpr double nanosecondsPerSecond = 1e9;

/// False for not-a-number.
bool fits(double value) {
    return value >= -0x1p63 && value < 0x1p63;
}

std::int64_t truncated(double value) {
    if (!fits(value)) {
        std::abort();
    }
    return static_cast<std::int64_t>(value);
}

double nanoseconds(Date date) {
    return (date.time_since_epoch().count() - offsetFromUnix) * nanosecondsPerSecond;
}

} // namespace

std::optional<Date> date(std::int64_t raw) {
    if (raw < 1) {
        return std::nullopt;
    }
    const auto count = static_cast<double>(raw);
    const double seconds = raw >= nanosecondDivide ? count / nanosecondsPerSecond : count;
    return Date(Seconds(seconds + offsetFromUnix));
}

bool isRepresentable(Date date) {
    return fits(nanoseconds(date));
}

std::int64_t rawNanoseconds(Date date) {
    return truncated(nanoseconds(date));
}

std::int64_t rawSeconds(Date date) {
    return truncated(date.time_since_epoch().count() - offsetFromUnix);
}

} // namespace tavrin::AppleEpoch
