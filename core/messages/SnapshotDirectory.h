// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace tavrin {

/// A new directory for one snapshot, readable by the owner only. The destructor removes it with its
/// contents.
///
/// An advisory lock marks a directory as in use. After a crash the lock is gone.
class SnapshotDirectory final {
public:
    /// Every name begins with this and ends with a UUID.
    static constexpr std::string_view prefix = "tavrin-chatdb-";

    /// Throws `std::filesystem::filesystem_error` if the directory cannot be created.
    SnapshotDirectory();
    ~SnapshotDirectory();
    SnapshotDirectory(const SnapshotDirectory&) = delete;
    SnapshotDirectory& operator=(const SnapshotDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// `$TMPDIR` if set and not empty, else "/tmp".
    [[nodiscard]] static std::filesystem::path parent();

    /// Removes this user's directories in `parent()` that no running process has locked. Returns
    /// their number. Ignores directories that cannot be removed.
    static std::size_t removeAbandoned();

private:
    std::filesystem::path path_;
    FileDescriptor lock_;
};

} // namespace tavrin
