// SPDX-License-Identifier: Apache-2.0
#include "tests/support/SmallDisk.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <string_view>
#include <utility>

/// In place of the C library's: the kernel does not apply the limit on the size of files to room
/// that is reserved beyond a file's end.
extern "C" int fallocate(int file, int mode, off_t offset, off_t length) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    if (static_cast<rlim_t>(offset + length) > limit.rlim_cur) {
        errno = EFBIG;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fallocate, file, mode, offset, length));
}

namespace orvel::test {

namespace {

using tavrin::FileDescriptor;

/// The root directory of a new file system of that many bytes, which is mounted nowhere; none if
/// this process lacks the right.
FileDescriptor makeFileSystem(const std::string& size) {
    const FileDescriptor settings(fsopen("tmpfs", FSOPEN_CLOEXEC));
    if (fsconfig(settings.get(), FSCONFIG_SET_STRING, "size", size.c_str(), 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) {
        return {};
    }
    return FileDescriptor(fsmount(settings.get(), FSMOUNT_CLOEXEC, 0));
}

bool writeText(const char* file, std::string_view text) {
    const FileDescriptor descriptor(open(file, O_WRONLY | O_CLOEXEC));
    return write(descriptor.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// The same by a child with a user namespace, in which it has the rights of root. The child shares
/// the table of open files; it may only make system calls, as after any fork with several threads.
FileDescriptor makeFileSystemInNamespace(const std::string& size) {
    const std::string users = fmt::format("{0} {0} 1", geteuid());
    const std::string groups = fmt::format("{0} {0} 1", getegid());
    FileDescriptor root(open("/dev/null", O_RDONLY | O_CLOEXEC));
    constexpr int flags = CLONE_NEWUSER | CLONE_NEWNS | CLONE_FILES | SIGCHLD;
    const auto child = static_cast<pid_t>(syscall(SYS_clone, flags, nullptr, nullptr, nullptr, 0));
    if (child == 0) {
        const bool isMapped = writeText("/proc/self/setgroups", "deny") &&
                              writeText("/proc/self/uid_map", users) &&
                              writeText("/proc/self/gid_map", groups);
        int made = -1;
        if (isMapped) {
            const FileDescriptor fileSystem = makeFileSystem(size);
            made = dup3(fileSystem.get(), root.get(), O_CLOEXEC);
        }
        _exit(made >= 0 ? 0 : 1);
    }
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0 ? std::move(root) : FileDescriptor();
}

} // namespace

SmallDisk::SmallDisk(std::filesystem::path directory, std::size_t size)
    : directory_(std::move(directory)),
      hidden_(directory_.string() + ".hidden"),
      fileSystem_(makeFileSystem(std::to_string(size))) {
    if (!fileSystem_.isOpen()) {
        fileSystem_ = makeFileSystemInNamespace(std::to_string(size));
    }
    if (!fileSystem_.isOpen()) {
        limit_.emplace(size);
        return;
    }
    std::filesystem::rename(directory_, hidden_);
    std::filesystem::create_directory_symlink(
        fmt::format("/proc/{}/fd/{}", getpid(), fileSystem_.get()), directory_);
}

SmallDisk::~SmallDisk() {
    if (!limit_) {
        std::filesystem::remove(directory_);
        std::filesystem::rename(hidden_, directory_);
    }
}

int SmallDisk::errorWhenFull() const {
    return limit_ ? EFBIG : ENOSPC;
}

} // namespace orvel::test
