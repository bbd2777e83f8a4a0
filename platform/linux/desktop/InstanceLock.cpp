// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/InstanceLock.h"

#include "core/ParentFolders.h"
#include "core/WriteAccess.h"

#include <QStandardPaths>
#include <QString>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace orvel {

namespace {

/// Whether only this user can write to the folder. Otherwise another user could replace the lock
/// file or hold the lock forever.
bool isOwn(const std::filesystem::path& folder) {
    struct stat status {};
    return folder.is_absolute() && lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && !tavrin::canOthersWrite(status);
}

struct flock wholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

std::optional<std::filesystem::path> InstanceLock::defaultFolder() {
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
    // Not /tmp: another user could take the name there first.
    folder =
        std::filesystem::path(
            QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString()) /
        "orvel-agent";
    tavrin::createParentFolders(folder / "lock");
    return isOwn(folder) ? std::optional(folder) : std::nullopt;
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
