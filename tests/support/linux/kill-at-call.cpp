// SPDX-License-Identifier: Apache-2.0
//
// Preloaded into a program: counts its calls that change files or use sockets, by kind, and kills
// the program at one of them. tests/support/linux/KillAtCall.h describes the variables.
//
// Every call goes directly to the kernel, so that this works before any other library is ready.
#include "tests/support/linux/KillAtCall.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using orvel::test::CallCounts;
using orvel::test::CallKind;
using orvel::test::KillPoint;

// Set once, before `main`.
CallCounts* counts = nullptr;
KillPoint point;
bool hasPoint = false;
bool refusesUnnamedFiles = false;

[[noreturn]] void die() {
    syscall(SYS_kill, syscall(SYS_getpid), SIGKILL);
    for (;;) {
        syscall(SYS_sched_yield);
    }
}

/// Counts a call. Whether the program is to be killed at it.
bool isFatal(CallKind kind) {
    if (counts == nullptr) {
        return false;
    }
    const std::uint64_t number =
        __atomic_add_fetch(&(*counts)[static_cast<std::size_t>(kind)], 1, __ATOMIC_RELAXED);
    return hasPoint && kind == point.kind && number == point.number;
}

template <typename Call>
auto counting(CallKind kind, Call call) {
    const bool isLast = isFatal(kind);
    if (isLast && point.moment == KillPoint::Moment::Before) {
        die();
    }
    const auto result = call();
    if (isLast) {
        die();
    }
    return result;
}

/// For calls with a number of bytes, of which only half may be processed before the kill.
template <typename Call>
ssize_t countingBytes(CallKind kind, std::size_t size, Call call) {
    const bool isLast = isFatal(kind);
    if (isLast && point.moment == KillPoint::Moment::Before) {
        die();
    }
    const ssize_t result =
        call(isLast && point.moment == KillPoint::Moment::Half ? size / 2 : size);
    if (isLast) {
        die();
    }
    return result;
}

/// Counts only calls that received something: programs ask repeatedly.
ssize_t received(ssize_t size) {
    const int error = errno;
    if (size > 0 && isFatal(CallKind::Receive)) {
        die();
    }
    errno = error;
    return size;
}

/// Not for pipes and for wake-ups of other threads.
bool isRegularFile(int descriptor) {
    struct stat status {};
    return syscall(SYS_fstat, descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

template <typename Call>
ssize_t writing(int descriptor, std::size_t size, Call call) {
    return counts != nullptr && isRegularFile(descriptor)
               ? countingBytes(CallKind::Write, size, call)
               : call(size);
}

int opening(int folder, const char* path, int flags, mode_t mode) {
    const auto call = [&] {
        return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
    };
    const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;
    if (isUnnamed && refusesUnnamedFiles) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return (flags & O_CREAT) != 0 || isUnnamed ? counting(CallKind::Create, call) : call();
}

bool isProgram(const char* name) {
    return name != nullptr && std::strcmp(program_invocation_short_name, name) == 0;
}

__attribute__((constructor)) void begin() {
    const char* file = std::getenv("KILL_AT_CALL_COUNTS");
    if (file == nullptr || !isProgram(std::getenv("KILL_AT_CALL_PROGRAM"))) {
        return;
    }
    const auto descriptor =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC));
    void* memory =
        descriptor >= 0
            ? mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0)
            : MAP_FAILED;
    if (memory == MAP_FAILED) {
        static constexpr char text[] = "kill-at-call: the file of the counts cannot be used\n";
        syscall(SYS_write, STDERR_FILENO, text, sizeof text - 1);
        _exit(99);
    }
    syscall(SYS_close, descriptor);
    refusesUnnamedFiles = std::getenv("KILL_AT_CALL_WITHOUT_UNNAMED_FILES") != nullptr;
    unsigned kind = 0;
    unsigned moment = 0;
    unsigned long number = 0;
    if (const char* text = std::getenv("KILL_AT_CALL");
        text != nullptr && std::sscanf(text, "%u:%lu:%u", &kind, &number, &moment) == 3) {
        point = {static_cast<CallKind>(kind), number, static_cast<KillPoint::Moment>(moment)};
        hasPoint = true;
    }
    counts = static_cast<CallCounts*>(memory);
}

} // namespace

extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t size) {
    return writing(descriptor, size, [&](std::size_t part) {
        return static_cast<ssize_t>(syscall(SYS_write, descriptor, bytes, part));
    });
}

ssize_t pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
    return writing(descriptor, size, [&](std::size_t part) {
        return static_cast<ssize_t>(syscall(SYS_pwrite64, descriptor, bytes, part, offset));
    });
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t size, off64_t offset) {
    return pwrite(descriptor, bytes, size, offset);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
    return writing(descriptor, 1, [&](std::size_t) {
        return static_cast<ssize_t>(syscall(SYS_writev, descriptor, parts, count));
    });
}

ssize_t sendto(
    int socket, const void* bytes, size_t size, int flags, const sockaddr* to, socklen_t length) {
    return countingBytes(CallKind::Send, size, [&](std::size_t part) {
        return static_cast<ssize_t>(syscall(SYS_sendto, socket, bytes, part, flags, to, length));
    });
}

ssize_t send(int socket, const void* bytes, size_t size, int flags) {
    return sendto(socket, bytes, size, flags, nullptr, 0);
}

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    return counting(CallKind::Send, [&] {
        return static_cast<ssize_t>(syscall(SYS_sendmsg, socket, message, flags));
    });
}

ssize_t
recvfrom(int socket, void* bytes, size_t size, int flags, sockaddr* from, socklen_t* length) {
    return received(syscall(SYS_recvfrom, socket, bytes, size, flags, from, length));
}

ssize_t recv(int socket, void* bytes, size_t size, int flags) {
    return recvfrom(socket, bytes, size, flags, nullptr, nullptr);
}

ssize_t recvmsg(int socket, msghdr* message, int flags) {
    return received(syscall(SYS_recvmsg, socket, message, flags));
}

int renameat2(int from, const char* old, int to, const char* name, unsigned flags) noexcept {
    return counting(CallKind::Rename, [&] {
        return static_cast<int>(syscall(SYS_renameat2, from, old, to, name, flags));
    });
}

int renameat(int from, const char* old, int to, const char* name) noexcept {
    return renameat2(from, old, to, name, 0);
}

int rename(const char* old, const char* name) noexcept {
    return renameat2(AT_FDCWD, old, AT_FDCWD, name, 0);
}

int linkat(int from, const char* old, int to, const char* name, int flags) noexcept {
    return counting(CallKind::Rename, [&] {
        return static_cast<int>(syscall(SYS_linkat, from, old, to, name, flags));
    });
}

int link(const char* old, const char* name) noexcept {
    return linkat(AT_FDCWD, old, AT_FDCWD, name, 0);
}

int unlinkat(int folder, const char* path, int flags) noexcept {
    return counting(CallKind::Remove, [&] {
        return static_cast<int>(syscall(SYS_unlinkat, folder, path, flags));
    });
}

int unlink(const char* path) noexcept {
    return unlinkat(AT_FDCWD, path, 0);
}

int rmdir(const char* path) noexcept {
    return unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}

int mkdirat(int folder, const char* path, mode_t mode) noexcept {
    return counting(CallKind::Create, [&] {
        return static_cast<int>(syscall(SYS_mkdirat, folder, path, mode));
    });
}

int mkdir(const char* path, mode_t mode) noexcept {
    return mkdirat(AT_FDCWD, path, mode);
}

int fsync(int descriptor) {
    return counting(
        CallKind::Synchronize, [&] { return static_cast<int>(syscall(SYS_fsync, descriptor)); });
}

int fdatasync(int descriptor) {
    return counting(CallKind::Synchronize, [&] {
        return static_cast<int>(syscall(SYS_fdatasync, descriptor));
    });
}

int flock(int descriptor, int operation) noexcept {
    return counting(CallKind::Synchronize, [&] {
        return static_cast<int>(syscall(SYS_flock, descriptor, operation));
    });
}

int ftruncate(int descriptor, off_t size) noexcept {
    return counting(CallKind::Change, [&] {
        return static_cast<int>(syscall(SYS_ftruncate, descriptor, size));
    });
}

int ftruncate64(int descriptor, off64_t size) noexcept {
    return ftruncate(descriptor, size);
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return counting(
        CallKind::Change, [&] { return static_cast<int>(syscall(SYS_fchmod, descriptor, mode)); });
}

int fallocate(int descriptor, int mode, off_t offset, off_t size) {
    return counting(CallKind::Change, [&] {
        return static_cast<int>(syscall(SYS_fallocate, descriptor, mode, offset, size));
    });
}

int fallocate64(int descriptor, int mode, off64_t offset, off64_t size) {
    return fallocate(descriptor, mode, offset, size);
}

ssize_t copy_file_range(
    int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t size, unsigned flags) {
    return countingBytes(CallKind::Change, size, [&](std::size_t part) {
        return static_cast<ssize_t>(
            syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, part, flags));
    });
}

ssize_t sendfile(int to, int from, off_t* offset, size_t size) noexcept {
    return countingBytes(CallKind::Change, size, [&](std::size_t part) {
        return static_cast<ssize_t>(syscall(SYS_sendfile, to, from, offset, part));
    });
}

ssize_t sendfile64(int to, int from, off64_t* offset, size_t size) noexcept {
    return sendfile(to, from, offset, size);
}

} // extern "C"

// The mode is only given, and only read, with the flags that need it.
#define ORVEL_MODE_OF(flags, mode)                                                                 \
    va_list arguments;                                                                             \
    va_start(arguments, flags);                                                                    \
    const auto mode = static_cast<mode_t>(                                                         \
        ((flags)&O_CREAT) != 0 || ((flags)&O_TMPFILE) == O_TMPFILE ? va_arg(arguments, int) : 0);  \
    va_end(arguments);

extern "C" int open(const char* path, int flags, ...) {
    ORVEL_MODE_OF(flags, mode)
    return opening(AT_FDCWD, path, flags, mode);
}

extern "C" int open64(const char* path, int flags, ...) {
    ORVEL_MODE_OF(flags, mode)
    return opening(AT_FDCWD, path, flags, mode);
}

extern "C" int openat(int folder, const char* path, int flags, ...) {
    ORVEL_MODE_OF(flags, mode)
    return opening(folder, path, flags, mode);
}

extern "C" int openat64(int folder, const char* path, int flags, ...) {
    ORVEL_MODE_OF(flags, mode)
    return opening(folder, path, flags, mode);
}
