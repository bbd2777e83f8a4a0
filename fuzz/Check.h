// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

/// Aborts if the condition does not hold, which a fuzzer reports as a crash.
inline void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}
