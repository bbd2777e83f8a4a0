// SPDX-License-Identifier: Apache-2.0
#include "core/FileLock.h"

#include "core/FileDescriptor.h"
#include "core/FileErrors.h"
#include "core/ParentFolders.h"
#include "core/RegularFile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <optional>
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
    const std::optional<PlatformError> noFolder = createParentFolders(file);
    FileDescriptor descriptor;
    try {
        // Another user could hold the lock of a file that it can open.
        descriptor = openOwnFile(file, O_RDONLY, "Could not lock");
    } catch (const PlatformError& error) {
        throw PlatformError(error.code() == ENOENT && noFolder ? *noFolder : error);
    }
    while (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            return nullptr;
        }
        if (errno != EINTR) {
            throw fileError(errno, "Could not lock", file);
        }
    }
    return std::make_unique<FileLock>(std::move(descriptor));
}

} // namespace tavrin
