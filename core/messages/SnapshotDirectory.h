// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>

namespace tavrin {

/// The snapshot directories that exist at the moment. It can remove them at the end of the process
/// although the thread that uses them hangs. Thread-safe.
class LiveSnapshots final {
public:
    LiveSnapshots() = default;
    LiveSnapshots(const LiveSnapshots&) = delete;
    LiveSnapshots& operator=(const LiveSnapshots&) = delete;

    void add(const std::filesystem::path& directory);
    void remove(const std::filesystem::path& directory);

    /// Removes the directories from the disk.
    void removeDirectories();

private:
    std::mutex mutex_;
    std::set<std::filesystem::path> directories_;
};

/// A new directory for one snapshot, readable by the owner only. The destructor removes it with its
/// contents.
///
/// An advisory lock marks a directory as in use. After a crash the lock is gone.
class SnapshotDirectory final {
public:
    /// Every name begins with this and ends with a UUID.
    static constexpr std::string_view prefix = "tavrin-chatdb-";

    /// Is in the list for as long as it exists. Creates a missing `parent()` for this user only.
    /// Throws `PlatformError` if the directory cannot be created, or if other users could rename it
    /// or a folder above it.
    explicit SnapshotDirectory(std::shared_ptr<LiveSnapshots> live = nullptr);
    ~SnapshotDirectory();
    SnapshotDirectory(const SnapshotDirectory&) = delete;
    SnapshotDirectory& operator=(const SnapshotDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// `$TMPDIR` if set and not empty, else "/tmp".
    [[nodiscard]] static std::filesystem::path parent();

    /// Removes this user's directories in the folder that no running process has locked. Returns
    /// their number. Examines at most 1000, the next call the rest. If some cannot be removed,
    /// removes the others, then throws `std::filesystem::filesystem_error` for the first one.
    static std::size_t removeAbandoned(const std::filesystem::path& folder = parent());

    /// Locks the opened directory. Returns no descriptor if another process holds the lock, the
    /// directory belongs to another user, or the path no longer names it.
    [[nodiscard]] static FileDescriptor
    tryLock(FileDescriptor directory, const std::filesystem::path& path);

private:
    const std::shared_ptr<LiveSnapshots> live_;
    std::filesystem::path path_;
    FileDescriptor lock_;
};

} // namespace tavrin
