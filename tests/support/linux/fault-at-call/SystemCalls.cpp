// SPDX-License-Identifier: Apache-2.0
//
// Every call goes directly to the kernel, so that this works before any other library is ready, and
// to the C library where the kernel has no such call.
#include "tests/support/linux/fault-at-call/Arrival.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using orvel::test::Arrival;
using orvel::test::arrive;
using orvel::test::CallKind;
using orvel::test::die;
using orvel::test::insteadOf;
using orvel::test::isCounting;
using orvel::test::refusesUnnamedFiles;

template <typename Call>
auto counting(CallKind kind, Call call) -> decltype(call()) {
    const Arrival arrival = arrive(kind);
    if (arrival.fails) {
        return -1;
    }
    const auto result = call();
    if (arrival.isLast) {
        die();
    }
    return result;
}

/// For calls with a number of bytes, of which only half may be processed before a kill.
template <typename Call>
ssize_t countingBytes(CallKind kind, std::size_t size, Call call) {
    const Arrival arrival = arrive(kind);
    if (arrival.fails) {
        return -1;
    }
    const ssize_t result = call(arrival.isHalf ? size / 2 : size);
    if (arrival.isLast) {
        die();
    }
    return result;
}

/// Counts only calls that received something: programs ask repeatedly.
ssize_t received(ssize_t size) {
    const int error = errno;
    if (size > 0) {
        const Arrival arrival = arrive(CallKind::Receive);
        if (arrival.fails) {
            return -1;
        }
        if (arrival.isLast) {
            die();
        }
    }
    errno = error;
    return size;
}

/// Not for pipes and for wake-ups of other threads.
bool isRegularFile(int descriptor) {
    const int error = errno;
    struct stat status {};
    const bool isRegular = syscall(SYS_fstat, descriptor, &status) == 0 && S_ISREG(status.st_mode);
    errno = error;
    return isRegular;
}

template <typename Call>
ssize_t writing(int descriptor, std::size_t size, Call call) {
    return isCounting() && isRegularFile(descriptor) ? countingBytes(CallKind::Write, size, call)
                                                     : call(size);
}

template <typename Call>
ssize_t reading(int descriptor, Call call) {
    return isCounting() && isRegularFile(descriptor) ? counting(CallKind::Read, call) : call();
}

int opening(int folder, const char* path, int flags, mode_t mode) {
    const auto call = [&] {
        return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
    };
    const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;
    if (isUnnamed && refusesUnnamedFiles()) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return counting((flags & O_CREAT) != 0 || isUnnamed ? CallKind::Create : CallKind::Open, call);
}

/// The C library's own function.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Checks of the sanitizers create pipes.
bool isSanitizer(const void* caller) {
    Dl_info library{};
    return dladdr(caller, &library) != 0 && std::strstr(library.dli_fname, "san.so") != nullptr;
}

std::FILE* openingStream(const char* path, const char* mode) {
    static auto* const open = next<std::FILE*(const char*, const char*)>("fopen64");
    const CallKind kind = mode[0] == 'r' ? CallKind::Open : CallKind::Create;
    return arrive(kind).fails ? nullptr : open(insteadOf(path), mode);
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

ssize_t read(int descriptor, void* bytes, size_t size) {
    return reading(descriptor, [&] {
        return static_cast<ssize_t>(syscall(SYS_read, descriptor, bytes, size));
    });
}

ssize_t pread(int descriptor, void* bytes, size_t size, off_t offset) {
    return reading(descriptor, [&] {
        return static_cast<ssize_t>(syscall(SYS_pread64, descriptor, bytes, size, offset));
    });
}

ssize_t pread64(int descriptor, void* bytes, size_t size, off64_t offset) {
    return pread(descriptor, bytes, size, offset);
}

ssize_t readv(int descriptor, const iovec* parts, int count) {
    return reading(descriptor, [&] {
        return static_cast<ssize_t>(syscall(SYS_readv, descriptor, parts, count));
    });
}

int close(int descriptor) {
    const bool isCounted = isCounting() && isRegularFile(descriptor);
    const auto result = static_cast<int>(syscall(SYS_close, descriptor));
    // The descriptor is closed even if the call fails.
    return isCounted && result == 0 ? counting(CallKind::Close, [] { return 0; }) : result;
}

int connect(int socket, const sockaddr* address, socklen_t length) {
    return counting(CallKind::Connect, [&] {
        return static_cast<int>(syscall(SYS_connect, socket, address, length));
    });
}

int socket(int domain, int type, int protocol) noexcept {
    return counting(CallKind::Descriptor, [&] {
        return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
    });
}

int socketpair(int domain, int type, int protocol, int* ends) noexcept {
    return counting(CallKind::Descriptor, [&] {
        return static_cast<int>(syscall(SYS_socketpair, domain, type, protocol, ends));
    });
}

int pipe2(int* ends, int flags) noexcept {
    return counting(
        CallKind::Descriptor, [&] { return static_cast<int>(syscall(SYS_pipe2, ends, flags)); });
}

int pipe(int* ends) noexcept {
    return isCounting() && isSanitizer(__builtin_return_address(0))
               ? static_cast<int>(syscall(SYS_pipe2, ends, 0))
               : pipe2(ends, 0);
}

int eventfd(unsigned value, int flags) noexcept {
    return counting(CallKind::Descriptor, [&] {
        return static_cast<int>(syscall(SYS_eventfd2, value, flags));
    });
}

ssize_t getrandom(void* bytes, size_t size, unsigned flags) {
    return counting(CallKind::Random, [&] {
        return static_cast<ssize_t>(syscall(SYS_getrandom, bytes, size, flags));
    });
}

int getentropy(void* bytes, size_t size) {
    return getrandom(bytes, size, 0) == static_cast<ssize_t>(size) ? 0 : -1;
}

int pthread_create(
    pthread_t* thread,
    const pthread_attr_t* attributes,
    void* (*work)(void*),
    void* argument) noexcept {
    static auto* const create =
        next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    const int error = errno;
    if (arrive(CallKind::Thread).fails) {
        const int failure = errno;
        errno = error;
        return failure;
    }
    return create(thread, attributes, work, argument);
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

int remove(const char* path) noexcept {
    return counting(CallKind::Remove, [&] {
        int result = static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
        if (result != 0 && errno == EISDIR) {
            result = static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR));
        }
        return result;
    });
}

int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
    return counting(CallKind::Inspect, [&] {
        return static_cast<int>(syscall(SYS_newfstatat, folder, path, status, flags));
    });
}

int stat(const char* path, struct stat* status) noexcept {
    return fstatat(AT_FDCWD, path, status, 0);
}

int lstat(const char* path, struct stat* status) noexcept {
    return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int fstat(int descriptor, struct stat* status) noexcept {
    return counting(CallKind::Inspect, [&] {
        return static_cast<int>(syscall(SYS_fstat, descriptor, status));
    });
}

// On 64-bit systems both structures are the same.
static_assert(sizeof(struct stat) == sizeof(struct stat64));

int fstatat64(int folder, const char* path, struct stat64* status, int flags) noexcept {
    return fstatat(folder, path, reinterpret_cast<struct stat*>(status), flags);
}

int stat64(const char* path, struct stat64* status) noexcept {
    return fstatat64(AT_FDCWD, path, status, 0);
}

int lstat64(const char* path, struct stat64* status) noexcept {
    return fstatat64(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int fstat64(int descriptor, struct stat64* status) noexcept {
    return fstat(descriptor, reinterpret_cast<struct stat*>(status));
}

int statx(int folder, const char* path, int flags, unsigned mask, struct statx* status) noexcept {
    return counting(CallKind::Inspect, [&] {
        return static_cast<int>(syscall(SYS_statx, folder, path, flags, mask, status));
    });
}

int access(const char* path, int mode) noexcept {
    return counting(CallKind::Inspect, [&] {
        return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
    });
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

int fchmodat(int folder, const char* path, mode_t mode, int flags) noexcept {
    static auto* const change = next<int(int, const char*, mode_t, int)>("fchmodat");
    return counting(CallKind::Change, [&] { return change(folder, path, mode, flags); });
}

int chmod(const char* path, mode_t mode) noexcept {
    return counting(
        CallKind::Change, [&] { return static_cast<int>(syscall(SYS_chmod, path, mode)); });
}

int posix_fallocate(int descriptor, off_t offset, off_t size) {
    static auto* const allocate = next<int(int, off_t, off_t)>("posix_fallocate");
    return arrive(CallKind::Change).fails ? errno : allocate(descriptor, offset, size);
}

int posix_fallocate64(int descriptor, off64_t offset, off64_t size) {
    return posix_fallocate(descriptor, offset, size);
}

int mkostemp(char* name, int flags) {
    static auto* const create = next<int(char*, int)>("mkostemp");
    return counting(CallKind::Create, [&] { return create(name, flags); });
}

int mkostemp64(char* name, int flags) {
    return mkostemp(name, flags);
}

std::FILE* fopen(const char* path, const char* mode) {
    return openingStream(path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    return openingStream(path, mode);
}

DIR* opendir(const char* path) {
    static auto* const open = next<DIR*(const char*)>("opendir");
    return arrive(CallKind::Open).fails ? nullptr : open(path);
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

extern "C" int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto call = [&] {
        return static_cast<int>(syscall(SYS_fcntl, descriptor, command, argument));
    };
    switch (command) {
    case F_SETLK:
    case F_SETLKW:
    case F_OFD_SETLK:
    case F_OFD_SETLKW:
        return counting(CallKind::Synchronize, call);
    case F_DUPFD:
    case F_DUPFD_CLOEXEC:
        return counting(CallKind::Descriptor, call);
    default:
        return call();
    }
}

extern "C" int fcntl64(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return fcntl(descriptor, command, argument);
}
