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

/// A file that is being downloaded, and is seen by nobody before it has been verified: where the
/// file system can, it has no name until then. It lies in the folder of the file whose place it
/// will take, so that taking it is one step. Destroying it removes it, unless it was put in place.
///
/// Any thread, one at a time. Failures of the system are thrown as `tavrin::PlatformError`.
class StagedUpdate final {
public:
    enum class Way {
        /// `O_TMPFILE`; where the file system cannot do that, the other way.
        WithoutName,
        /// Hidden beside its place.
        Named,
    };

    /// Decides who may do what with the file once it is in its place.
    enum class Use {
        /// Started. The mode of the program it replaces, so that the user's choice is kept, but
        /// nothing is taken over from what is not a file of this user's own, nor may others write.
        Program,
        /// Opened by the system's installer, which may be another user. Nothing in it is secret.
        Document,
    };

    /// To be put in that file's place, with room for that many bytes, so that a disk without it is
    /// noticed before anything is downloaded. The folder must exist.
    StagedUpdate(std::filesystem::path place, std::uint64_t length, Way way = Way::WithoutName);
    ~StagedUpdate();
    StagedUpdate(const StagedUpdate&) = delete;
    StagedUpdate& operator=(const StagedUpdate&) = delete;

    /// Throws `UpdateError` when that would be more than the announced length, and then writes
    /// nothing.
    void append(std::string_view bytes);

    [[nodiscard]] std::uint64_t received() const { return received_; }

    /// Throws `UpdateError` unless the file has exactly the announced length and the key's owner
    /// signed all of it. Makes sure that it is on the disk.
    void verify(const UpdateKey& key, const UpdateSignature& signature);

    /// Puts the verified file in its place, in one step. The very file that was verified, by its
    /// descriptor: whatever else has got its name throws `UpdateError`. Once.
    void putInPlace(Use use);

private:
    void open(Way way);
    [[nodiscard]] unsigned modeFor(Use use) const;
    void giveName();
    void removeName() const;
    [[nodiscard]] tavrin::PlatformError couldNotStore(int error) const;
    [[nodiscard]] tavrin::PlatformError couldNotReplace(int error) const;
    /// Whether the name in the folder stands for this file.
    [[nodiscard]] bool isAt(const std::string& name) const;

    std::filesystem::path place_;
    std::uint64_t length_;
    std::uint64_t received_ = 0;
    /// In the folder, while the file has one.
    std::string name_;
    bool isNamed_ = false;
    bool isVerified_ = false;
    tavrin::FileDescriptor folder_;
    tavrin::FileDescriptor file_;
};

} // namespace orvel
