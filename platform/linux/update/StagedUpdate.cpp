// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/StagedUpdate.h"

#include "core/Errors.h"
#include "core/FileErrors.h"
#include "core/WriteAccess.h"
#include "platform/linux/support/ReadFile.h"
#include "platform/linux/update/UpdateError.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <memory>
#include <new>
#include <span>
#include <utility>

namespace orvel {

namespace {

using tavrin::FileDescriptor;
using tavrin::PlatformError;

constexpr auto couldNotRead = "Could not read the update";

/// Whether it says that the file system, or the kernel, has no files without a name.
bool lacksUnnamedFiles(int error) {
    return error == EOPNOTSUPP || error == EISDIR;
}

/// Whether reserving space failed because the disk is full. Not every file system can reserve.
bool isDiskFull(int error) {
    return error == ENOSPC || error == EFBIG || error == EDQUOT;
}

} // namespace

StagedUpdate::StagedUpdate(
    std::filesystem::path place, std::uint64_t length, Use use, Naming naming)
    : place_(std::move(place)),
      length_(length),
      use_(use),
      name_(fmt::format(".{}.update", place_.filename().string())),
      folder_(::open(place_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (folder_.isOpen() && use_ == Use::Document && canOthersReplaceFiles()) {
        throw UpdateError(UpdateError::SharedFolder{place_.parent_path().string()});
    }
    open(naming);
    if (fallocate(file_.get(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(length_)) != 0 &&
        isDiskFull(errno)) {
        const int error = errno;
        removeName();
        throw couldNotStore(error);
    }
}

StagedUpdate::~StagedUpdate() {
    removeName();
}

void StagedUpdate::removeName() const {
    if (isNamed_ && isAt(name_)) {
        unlinkat(folder_.get(), name_.c_str(), 0);
    }
}

PlatformError StagedUpdate::couldNotStore(int error) const {
    return tavrin::fileError(error, "Could not store the update beside", place_);
}

PlatformError StagedUpdate::couldNotReplace(int error) const {
    return tavrin::fileError(error, "Could not replace", place_);
}

void StagedUpdate::open(Naming naming) {
    if (folder_.isOpen() && naming == Naming::WithoutName) {
        file_ = FileDescriptor(openat(folder_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    }
    if (folder_.isOpen() &&
        (naming == Naming::Named || (!file_.isOpen() && lacksUnnamedFiles(errno)))) {
        // A file that a crash left behind.
        unlinkat(folder_.get(), name_.c_str(), 0);
        file_ = FileDescriptor(
            openat(folder_.get(), name_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
        isNamed_ = file_.isOpen();
    }
    if (!file_.isOpen()) {
        throw couldNotStore(errno);
    }
}

void StagedUpdate::append(std::string_view bytes) {
    if (bytes.size() > length_ - received_) {
        throw UpdateError(UpdateError::TooLong{length_});
    }
    while (!bytes.empty()) {
        const ssize_t written = write(file_.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw couldNotStore(errno);
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
        received_ += static_cast<std::uint64_t>(written);
    }
}

bool StagedUpdate::canOthersReplaceFiles() const {
    struct stat status {};
    if (fstat(folder_.get(), &status) != 0) {
        throw couldNotStore(errno);
    }
    return tavrin::canOthersReplaceFiles(status);
}

void StagedUpdate::verify(const UpdateKey& key, const UpdateProof& proof) {
    struct stat status {};
    // Verify the content on disk, not what was received.
    if (fstat(file_.get(), &status) != 0 || fsync(file_.get()) != 0) {
        throw couldNotStore(errno);
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > length_) {
        throw UpdateError(UpdateError::TooLong{length_});
    }
    if (size < length_) {
        throw UpdateError(UpdateError::TooShort{length_, size});
    }
    // An Ed25519 signature is verified over one piece. Not a mapping of the file: where the disk
    // fails to deliver one of its pages, that ends the process.
    // NOLINTNEXTLINE(modernize-avoid-c-arrays)
    const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[size]);
    if (!buffer) {
        throw PlatformError::fromErrno(ENOMEM, couldNotRead);
    }
    const std::span content(buffer.get(), size);
    const auto buffered = std::as_writable_bytes(content);
    if (const auto count = readStart(file_.get(), buffered, couldNotRead); count < size) {
        throw UpdateError(UpdateError::TooShort{length_, count});
    }
    if (!key.verifies(proof.signature, content)) {
        throw UpdateError(UpdateError::BadSignature());
    }
    if (updateHash(content) != proof.hash) {
        throw UpdateError(UpdateError::OtherFile());
    }
    isVerified_ = true;
}

unsigned StagedUpdate::mode() const {
    constexpr mode_t document = 0644;
    constexpr mode_t program = 0755;
    if (use_ == Use::Document) {
        return document;
    }
    const std::string target = place_.filename();
    struct stat former {};
    const bool isOwnFile =
        fstatat(folder_.get(), target.c_str(), &former, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(former.st_mode) && former.st_uid == geteuid();
    return isOwnFile ? former.st_mode & program : program;
}

void StagedUpdate::putInPlace() {
    assert(isVerified_);
    const std::string target = place_.filename();
    // The name must not reach the disk before the mode, or a power cut could leave a program that
    // cannot be started.
    if (fchmod(file_.get(), mode()) != 0 || fsync(file_.get()) != 0) {
        throw couldNotReplace(errno);
    }
    giveName();
    if (!isAt(name_)) {
        throw UpdateError(UpdateError::Swapped());
    }
    if (renameat(folder_.get(), name_.c_str(), folder_.get(), target.c_str()) != 0) {
        throw couldNotReplace(errno);
    }
    isNamed_ = false;
    // After a crash before this point, either the old or the new file is present.
    static_cast<void>(fsync(folder_.get()));
    if (!isAt(target)) {
        throw UpdateError(UpdateError::Swapped());
    }
    // A file that is open for writing cannot be executed.
    file_ = FileDescriptor();
}

void StagedUpdate::giveName() {
    if (isNamed_) {
        return;
    }
    // A file that a crash left behind.
    unlinkat(folder_.get(), name_.c_str(), 0);
    const std::string descriptor = "/proc/self/fd/" + std::to_string(file_.get());
    if (linkat(AT_FDCWD, descriptor.c_str(), folder_.get(), name_.c_str(), AT_SYMLINK_FOLLOW) !=
        0) {
        throw couldNotReplace(errno);
    }
    isNamed_ = true;
}

bool StagedUpdate::isAt(const std::string& name) const {
    struct stat mine {};
    struct stat there {};
    return fstat(file_.get(), &mine) == 0 &&
           fstatat(folder_.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
           mine.st_dev == there.st_dev && mine.st_ino == there.st_ino;
}

} // namespace orvel
