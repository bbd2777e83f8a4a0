// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

/// Ends the program, which is how a fuzzer learns of a broken promise.
inline void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}
