// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>

namespace orvel::test {

/// Counts how often this process flushes a file or a folder to the disk while the object lives. One
/// object at a time.
class FlushCounter final {
public:
    FlushCounter();
    ~FlushCounter();
    FlushCounter(const FlushCounter&) = delete;
    FlushCounter& operator=(const FlushCounter&) = delete;

    [[nodiscard]] std::size_t count(const std::filesystem::path& file) const;
    /// The permissions that the file had when it was last flushed.
    [[nodiscard]] std::optional<unsigned> lastMode(const std::filesystem::path& file) const;
};

/// Runs the action before each `renameat` of this process while the object lives. One object at a
/// time.
class BeforeRenaming final {
public:
    explicit BeforeRenaming(std::function<void()> action);
    ~BeforeRenaming();
    BeforeRenaming(const BeforeRenaming&) = delete;
    BeforeRenaming& operator=(const BeforeRenaming&) = delete;
};

/// From now on, this system call does nothing and fails with that `errno` on this thread, and on
/// the threads that it starts. Cannot be undone, so it is for processes that end soon.
void failCall(int systemCall, int error);

/// Runs `work` on a thread on which this system call does nothing and fails with that `errno`.
void withFailingCall(int systemCall, int error, const std::function<void()>& work);

} // namespace orvel::test
