// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "platform/linux/update/UpdateKey.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace orvel {

/// The file of a download, hidden until it has been verified: if the file system supports it, the
/// file has no name until then. It is in the folder of the file that it will replace, so that
/// replacing is one atomic step. The destructor removes it, unless it was put in place.
///
/// Any thread, one at a time. Failures of the system are thrown as `tavrin::PlatformError`.
class StagedUpdate final {
public:
    enum class Naming {
        /// `O_TMPFILE`; falls back to `Named` where the file system does not support it.
        WithoutName,
        /// Under a hidden name beside the file that it will replace.
        Named,
    };

    /// Decides the file's mode once it is in place, and the folders that are accepted.
    enum class Use {
        /// A program: keeps the mode of the program it replaces if that is a regular file owned by
        /// this user, but never lets its group or others write. Any folder: those who can write to
        /// it could replace the former program, too.
        Program,
        /// A package, which the system's installer may open as another user. It holds no secret.
        /// Not in a folder in which other users can replace files (`canOthersReplaceFiles`).
        Document,
    };

    /// Will replace the file at `place`. Reserves space for `length` bytes, so that a full disk is
    /// noticed before the download. The folder must exist. Throws `UpdateError` if the folder does
    /// not suit the use.
    StagedUpdate(
        std::filesystem::path place,
        std::uint64_t length,
        Use use,
        Naming naming = Naming::WithoutName);
    ~StagedUpdate();
    StagedUpdate(const StagedUpdate&) = delete;
    StagedUpdate& operator=(const StagedUpdate&) = delete;

    /// Throws `UpdateError` and writes nothing when that would exceed the announced length.
    void append(std::string_view bytes);

    [[nodiscard]] std::uint64_t received() const { return received_; }

    /// Throws `UpdateError` unless the file has exactly the announced length, a valid signature and
    /// the announced hash. Flushes its content to the disk.
    void verify(const UpdateKey& key, const UpdateProof& proof);

    /// Puts the verified file in place atomically. Works on the descriptor that was verified, and
    /// throws `UpdateError` when another file has taken its name. After a crash or a power cut at
    /// any point, either the old file or the complete new one with its mode is in place. Once.
    void putInPlace();

private:
    void open(Naming naming);
    [[nodiscard]] bool canOthersReplaceFiles() const;
    [[nodiscard]] unsigned mode() const;
    void giveName();
    void removeName() const;
    [[nodiscard]] tavrin::PlatformError couldNotStore(int error) const;
    [[nodiscard]] tavrin::PlatformError couldNotReplace(int error) const;
    /// Whether the name in the folder stands for this file.
    [[nodiscard]] bool isAt(const std::string& name) const;

    std::filesystem::path place_;
    std::uint64_t length_;
    Use use_;
    std::uint64_t received_ = 0;
    /// The hidden name in the folder, in use while `isNamed_`.
    std::string name_;
    bool isNamed_ = false;
    bool isVerified_ = false;
    tavrin::FileDescriptor folder_;
    tavrin::FileDescriptor file_;
};

} // namespace orvel
