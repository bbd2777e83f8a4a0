// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/campaign/FaultList.h"
#include "tests/support/linux/FaultAtCall.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// How many calls of each kind that writes a program makes at most.
struct WritingCalls {
    std::uint64_t write = 0;
    std::uint64_t rename = 0;
    std::uint64_t remove = 0;
    std::uint64_t create = 0;
    std::uint64_t synchronize = 0;
    std::uint64_t change = 0;
};

/// Each of the calls fails, once or from then on: the disk is full or read-only, a quota is used
/// up, a permission is missing, the disk is broken, or a folder has vanished.
[[nodiscard]] FaultList failingWrites(const WritingCalls& calls);

/// The counts if the program makes more of the calls than that.
[[nodiscard]] std::string missingWrites(const WritingCalls& calls, const CallCounts& counts);

/// What is wrong with a text that should tell the user which file or folder could not be written,
/// why, and what to do. Nothing if it does. One of the paths must be in it.
[[nodiscard]] std::string
wrongAboutWrite(std::string_view text, const std::vector<std::string>& paths);

} // namespace orvel::test
