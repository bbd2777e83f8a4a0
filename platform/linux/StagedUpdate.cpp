// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/StagedUpdate.h"

#include "core/Errors.h"
#include "platform/linux/UpdateError.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <utility>

namespace orvel {

namespace {

using tavrin::FileDescriptor;
using tavrin::PlatformError;

/// The pages of a file, for reading. Not in this process's own memory: the kernel takes them from
/// the file, and back when it needs the room.
class Mapping final {
public:
    Mapping(int file, std::size_t length)
        : length_(length), start_(mmap(nullptr, length, PROT_READ, MAP_SHARED, file, 0)) {}
    ~Mapping() {
        if (isMapped()) {
            munmap(start_, length_);
        }
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    [[nodiscard]] bool isMapped() const { return start_ != MAP_FAILED; }
    [[nodiscard]] std::span<const std::uint8_t> bytes() const {
        return {static_cast<const std::uint8_t*>(start_), length_};
    }

private:
    std::size_t length_;
    void* start_;
};

/// Whether it says that the file system, or the kernel, has no files without a name.
bool lacksUnnamedFiles(int error) {
    return error == EOPNOTSUPP || error == EISDIR;
}

/// Whether reserving room failed for lack of it. Not every file system can reserve.
bool isWithoutRoom(int error) {
    return error == ENOSPC || error == EFBIG || error == EDQUOT;
}

} // namespace

StagedUpdate::StagedUpdate(std::filesystem::path place, std::uint64_t length, Way way)
    : place_(std::move(place)),
      length_(length),
      name_(fmt::format(".{}.update", place_.filename().string())),
      folder_(::open(place_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    open(way);
    if (fallocate(file_.get(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(length_)) != 0 &&
        isWithoutRoom(errno)) {
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
    return PlatformError::fromErrno(error, "Could not store the update beside " + place_.string());
}

PlatformError StagedUpdate::couldNotReplace(int error) const {
    return PlatformError::fromErrno(error, "Could not replace " + place_.string());
}

void StagedUpdate::open(Way way) {
    if (folder_.isOpen() && way == Way::WithoutName) {
        file_ = FileDescriptor(openat(folder_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    }
    if (folder_.isOpen() && (way == Way::Named || (!file_.isOpen() && lacksUnnamedFiles(errno)))) {
        // One that a crash left behind.
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

void StagedUpdate::verify(const UpdateKey& key, const UpdateSignature& signature) {
    struct stat status {};
    // What counts is what the disk has, not what we remember.
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
    const Mapping mapping(file_.get(), size);
    if (!mapping.isMapped()) {
        throw PlatformError::fromErrno(errno, "Could not read the update");
    }
    if (!key.verifies(signature, mapping.bytes())) {
        throw UpdateError(UpdateError::BadSignature());
    }
    isVerified_ = true;
}

void StagedUpdate::putInPlace(unsigned modeIfNew) {
    assert(isVerified_);
    const std::string target = place_.filename();
    struct stat former {};
    const bool isNew = fstatat(folder_.get(), target.c_str(), &former, AT_SYMLINK_NOFOLLOW) != 0;
    constexpr mode_t permissions = 0777;
    if (fchmod(file_.get(), isNew ? mode_t{modeIfNew} : former.st_mode & permissions) != 0) {
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
    // Where the system crashes before this, one of both files is there.
    static_cast<void>(fsync(folder_.get()));
    if (!isAt(target)) {
        throw UpdateError(UpdateError::Swapped());
    }
    // A file that somebody may write to cannot be started.
    file_ = FileDescriptor();
}

void StagedUpdate::giveName() {
    if (isNamed_) {
        return;
    }
    // One that a crash left behind.
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
