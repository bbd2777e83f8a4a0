// SPDX-License-Identifier: Apache-2.0
#include "tests/support/SmallDisk.h"

#include <cerrno>
#include <utility>

namespace orvel::test {

// Only the system's own programs can make a file system for a single process.
SmallDisk::SmallDisk(std::filesystem::path directory, std::size_t size)
    : directory_(std::move(directory)), limit_(size) {}

SmallDisk::~SmallDisk() = default;

int SmallDisk::errorWhenFull() const {
    return EFBIG;
}

} // namespace orvel::test
