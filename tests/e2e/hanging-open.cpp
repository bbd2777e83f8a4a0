// SPDX-License-Identifier: Apache-2.0
//
// Preloaded into a program: opening the file HANGING_OPEN_PATH never returns, as on a network mount
// whose server is gone. Creates the file HANGING_OPEN_MARK when that happens.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

int openOrHang(int folder, const char* path, int flags, mode_t mode) {
    const char* hanging = std::getenv("HANGING_OPEN_PATH");
    const char* mark = std::getenv("HANGING_OPEN_MARK");
    if (hanging != nullptr && mark != nullptr && std::strcmp(path, hanging) == 0) {
        syscall(SYS_openat, AT_FDCWD, mark, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        for (;;) {
            pause();
        }
    }
    return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}

} // namespace

// The mode is only given, and only read, with the flags that need it.
#define ORVEL_DEFINE_OPEN(name)                                                                    \
    extern "C" int name(const char* path, int flags, ...) {                                        \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const auto mode = static_cast<mode_t>(                                                     \
            (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, int) : 0);                    \
        va_end(arguments);                                                                         \
        return openOrHang(AT_FDCWD, path, flags, mode);                                            \
    }

ORVEL_DEFINE_OPEN(open)
ORVEL_DEFINE_OPEN(open64)
