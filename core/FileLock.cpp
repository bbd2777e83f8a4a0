// SPDX-License-Identifier: Apache-2.0
#include "core/FileLock.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/ParentFolders.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace tavrin {

namespace {

class FileLock final : public Interface {
public:
    explicit FileLock(FileDescriptor file) : file_(std::move(file)) {}

private:
    FileDescriptor file_;
};

} // namespace

std::unique_ptr<Interface> tryLockFile(const std::filesystem::path& file) {
    createParentFolders(file);
    FileDescriptor descriptor(
        open(file.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (!descriptor.isOpen()) {
        throw PlatformError::fromErrno(errno, "Could not lock " + file.string());
    }
    while (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            return nullptr;
        }
        if (errno != EINTR) {
            throw PlatformError::fromErrno(errno, "Could not lock " + file.string());
        }
    }
    return std::make_unique<FileLock>(std::move(descriptor));
}

} // namespace tavrin
