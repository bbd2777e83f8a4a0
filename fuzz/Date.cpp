// SPDX-License-Identifier: Apache-2.0
#include "core/Date.h"

#include "core/messages/AppleEpoch.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

using namespace tavrin;

namespace {

double secondsOf(Date date) {
    return date.time_since_epoch().count();
}

void checkText(std::string_view text) {
    const auto date = dateFromISO8601(text);
    if (!date) {
        return;
    }
    const auto again = dateFromISO8601(iso8601(*date));
    // An offset, or a fraction that is rounded up, can lead out of the years with four digits.
    constexpr double year0 = -62'167'219'200;
    constexpr double year10000 = 253'402'300'800;
    check(
        again ? secondsOf(*again) == std::floor(secondsOf(*date))
              : secondsOf(*date) < year0 || secondsOf(*date) >= year10000);
}

void checkRaw(std::int64_t raw) {
    const auto date = AppleEpoch::date(raw);
    check(date.has_value() == (raw >= 1));
    if (!date) {
        return;
    }
    const auto again = dateFromISO8601(iso8601(*date));
    check(again && secondsOf(*again) == std::floor(secondsOf(*date)));
    if (AppleEpoch::isRepresentable(*date)) {
        // A double holds microseconds.
        const double expected = secondsOf(*date) - AppleEpoch::offsetFromUnix;
        check(std::abs(static_cast<double>(AppleEpoch::rawSeconds(*date)) - expected) <= 1);
        check(
            std::abs(static_cast<double>(AppleEpoch::rawNanoseconds(*date)) - expected * 1e9) <=
            1e6);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    if (size == 8) {
        checkRaw(input.integer(8));
    } else {
        checkText(input.rest());
    }
    return 0;
}
