// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <filesystem>

namespace orvel::test {

/// Leaves little room to write in a directory, for as long as the object lives: a file system of
/// that size is mounted there, seen by this process only. Where mounting is not allowed, no file
/// may grow larger than that instead.
class SmallDisk final {
public:
    SmallDisk(std::filesystem::path directory, std::size_t size);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /// Whether it is a file system of its own, which only fills up itself.
    [[nodiscard]] bool isMounted() const { return isMounted_; }

    /// The `errno` of a write that goes too far.
    [[nodiscard]] int errorWhenFull() const;

private:
    std::filesystem::path directory_;
    bool isMounted_ = false;
    rlimit formerLimit_{};
    void (*formerHandler_)(int) = nullptr;
};

} // namespace orvel::test
