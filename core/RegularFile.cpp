// SPDX-License-Identifier: Apache-2.0
#include "core/RegularFile.h"

#include "core/Errors.h"
#include "core/FileErrors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
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

FileDescriptor openOwnFile(const std::filesystem::path& path, int flags, std::string_view doing) {
    const std::string what = std::string(doing) + ' ' + path.string();
    const auto refusal = [&what](std::string_view reason) {
        return PlatformError(
            std::string(posixErrorDomain), EPERM, what + ": " + std::string(reason));
    };
    // Without O_NONBLOCK, opening a pipe would block.
    FileDescriptor descriptor(open(
        path.c_str(), flags | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR));
    struct stat status {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0) {
        throw fileError(errno, doing, path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw refusal("it is not a regular file.");
    }
    if (status.st_uid != geteuid()) {
        throw refusal("the file belongs to another user.");
    }
    if (status.st_nlink != 1) {
        throw refusal("the file has a second name, under which another user may have put it here.");
    }
    if (fchmod(descriptor.get(), S_IRUSR | S_IWUSR) != 0) {
        throw fileError(errno, doing, path);
    }
    return descriptor;
}

void refuseFileOfOthers(const std::filesystem::path& path, std::string_view doing) {
    const auto isOfOthers = [](const struct stat& status) {
        return status.st_uid != geteuid() && status.st_uid != 0;
    };
    struct stat named {};
    struct stat target {};
    if ((lstat(path.c_str(), &named) == 0 && isOfOthers(named)) ||
        (stat(path.c_str(), &target) == 0 && isOfOthers(target))) {
        throw PlatformError(
            std::string(posixErrorDomain),
            EPERM,
            std::string(doing) + ": " + path.string() +
                " belongs to another user. Choose a file in a folder of your own.");
    }
}

} // namespace tavrin
