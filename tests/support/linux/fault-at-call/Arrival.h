// SPDX-License-Identifier: Apache-2.0
//
// Preloaded into a program: counts its calls by kind, and kills the program at one of them or makes
// the call fail. tests/support/linux/FaultAtCall.h describes the variables.
#pragma once

#include "tests/support/linux/FaultAtCall.h"

#include <cstddef>
#include <cstdint>

namespace orvel::test {

/// What is to be done with a call that has been counted.
struct Arrival {
    /// Make it fail: `errno` is set.
    bool fails = false;
    /// Process only half of its bytes.
    bool isHalf = false;
    /// Kill the program after it.
    bool isLast = false;
};

/// Counts a call. Kills the program if that must happen before the call.
[[nodiscard]] Arrival arrive(CallKind kind);

/// Whether calls are counted, and so may do more than to call the system.
[[nodiscard]] bool isCounting();

/// Whether the program's `main` runs.
[[nodiscard]] bool isInMain();

/// Whether new files without a name must be refused.
[[nodiscard]] bool refusesUnnamedFiles();

/// The file to be opened instead of this one.
[[nodiscard]] const char* insteadOf(const char* path);

[[noreturn]] void die();

} // namespace orvel::test
