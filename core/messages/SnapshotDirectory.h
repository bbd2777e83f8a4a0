// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace tavrin {

/// A new directory for one snapshot, readable by the owner only and removed with all it holds.
///
/// An advisory lock tells the directories in use from those that a crash left behind.
class SnapshotDirectory final {
public:
    /// Every name begins with this and ends with a UUID.
    static constexpr std::string_view prefix = "tavrin-chatdb-";

    /// Throws `std::filesystem::filesystem_error` when the directory cannot be made.
    SnapshotDirectory();
    ~SnapshotDirectory();
    SnapshotDirectory(const SnapshotDirectory&) = delete;
    SnapshotDirectory& operator=(const SnapshotDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// `$TMPDIR` when set and not empty, else "/tmp".
    [[nodiscard]] static std::filesystem::path parent();

    /// Removes this user's directories in `parent()` that no running process holds, and returns how
    /// many. Those that cannot be removed stay.
    static std::size_t removeAbandoned();

private:
    std::filesystem::path path_;
    FileDescriptor lock_;
};

} // namespace tavrin
