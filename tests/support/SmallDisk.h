// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"
#include "tests/support/FileSizeLimit.h"

#include <cstddef>
#include <filesystem>
#include <optional>

namespace orvel::test {

/// Leaves little room to write in a directory, for as long as the object lives: it is a link to a
/// file system of that size. Where the system does not let this process make one, no file may grow
/// larger than that instead.
class SmallDisk final {
public:
    SmallDisk(std::filesystem::path directory, std::size_t size);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /// The `errno` of a write that goes too far.
    [[nodiscard]] int errorWhenFull() const;

private:
    std::filesystem::path directory_;
    /// What the link hides.
    std::filesystem::path hidden_;
    tavrin::FileDescriptor fileSystem_;
    std::optional<FileSizeLimit> limit_;
};

} // namespace orvel::test
