// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/InstanceLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace orvel {

namespace {

constexpr mode_t othersMayWrite = S_IWGRP | S_IWOTH;

/// Whether only this user can write to the folder. Otherwise another user could replace the lock
/// file or hold the lock forever.
bool isOwn(const std::filesystem::path& folder) {
    struct stat status {};
    return folder.is_absolute() && lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & othersMayWrite) == 0;
}

struct flock wholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

std::optional<std::filesystem::path> InstanceLock::defaultFolder(const std::string& identifier) {
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR")) {
        if (isOwn(runtime)) {
            return runtime;
        }
    }
    // The variable's usual value: a program started outside the session does not have the variable.
    std::filesystem::path folder = fmt::format("/run/user/{}", geteuid());
    if (isOwn(folder)) {
        return folder;
    }
    folder = fmt::format("/tmp/{}-{}", identifier, geteuid());
    if ((mkdir(folder.c_str(), S_IRWXU) == 0 || errno == EEXIST) && isOwn(folder)) {
        return folder;
    }
    return std::nullopt;
}

InstanceLock::Outcome
InstanceLock::take(const std::filesystem::path& folder, const std::string& identifier) {
    if (file_.isOpen()) {
        return Held();
    }
    tavrin::FileDescriptor file(open(
        (folder / (identifier + ".lock")).c_str(),
        O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW,
        S_IRUSR | S_IWUSR));
    if (!file.isOpen()) {
        return Unavailable();
    }
    // A record lock, because the kernel knows its holder; a process number stored in the file could
    // be outdated. Retry, because the holder may end between the two calls.
    for (int attempt = 0; attempt < 100; ++attempt) {
        struct flock lock = wholeFile();
        if (fcntl(file.get(), F_SETLK, &lock) == 0) {
            file_ = std::move(file);
            return Held();
        }
        if (errno != EACCES && errno != EAGAIN) {
            return Unavailable();
        }
        lock = wholeFile();
        if (fcntl(file.get(), F_GETLK, &lock) != 0) {
            return Unavailable();
        }
        if (lock.l_type != F_UNLCK) {
            return HeldBy{lock.l_pid};
        }
    }
    return Unavailable();
}

} // namespace orvel
