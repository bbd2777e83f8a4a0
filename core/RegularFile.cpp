// SPDX-License-Identifier: Apache-2.0
#include "core/RegularFile.h"

#include "core/Errors.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace tavrin {

RegularFile openRegularFile(const std::filesystem::path& path) {
    const auto failure = [&path](int code) {
        return PlatformError::fromErrno(code, "Could not read " + path.string());
    };
    // Without O_NONBLOCK, opening a pipe would block.
    FileDescriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0) {
        throw failure(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw failure(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    return {std::move(descriptor), status.st_size};
}

} // namespace tavrin
