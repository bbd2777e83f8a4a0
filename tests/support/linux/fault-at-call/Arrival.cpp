// SPDX-License-Identifier: Apache-2.0
//
// Every call goes directly to the kernel, so that this works before any other library is ready.
#include "tests/support/linux/fault-at-call/Arrival.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace orvel::test {

namespace {

// Set once, before `main`.
CallCounts* counts = nullptr;
CallFault fault;
bool hasFault = false;
bool refusesUnnamed = false;
const char* certificates = nullptr;

bool isRunningMain = false;
bool isTraced = false;

void print(const char* text) {
    syscall(SYS_write, STDERR_FILENO, text, std::strlen(text));
}

_Unwind_Reason_Code printFrame(_Unwind_Context* frame, void* count) {
    const auto address = static_cast<std::uintptr_t>(_Unwind_GetIP(frame));
    Dl_info library{};
    // The standard library allocates nothing for numbers.
    std::array<char, 512> line{};
    if (dladdr(reinterpret_cast<void*>(address), &library) != 0) {
        std::snprintf(
            line.data(),
            line.size(),
            "  %s+0x%zx %s\n",
            library.dli_fname,
            address - reinterpret_cast<std::uintptr_t>(library.dli_fbase),
            library.dli_sname != nullptr ? library.dli_sname : "");
        print(line.data());
    }
    return ++*static_cast<int*>(count) < 40 ? _URC_NO_REASON : _URC_END_OF_STACK;
}

/// Prints where the call that fails comes from.
void trace() {
    const bool wasRunning = std::exchange(isRunningMain, false);
    print("fault-at-call: the call that fails comes from\n");
    int count = 0;
    _Unwind_Backtrace(printFrame, &count);
    isRunningMain = wasRunning;
}

bool isProgram(const char* name) {
    return name != nullptr && std::strcmp(program_invocation_short_name, name) == 0;
}

__attribute__((constructor)) void begin() {
    const char* file = std::getenv("FAULT_AT_CALL_COUNTS");
    if (file == nullptr || !isProgram(std::getenv("FAULT_AT_CALL_PROGRAM"))) {
        return;
    }
    const auto descriptor =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC));
    void* memory =
        descriptor >= 0
            ? mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0)
            : MAP_FAILED;
    if (memory == MAP_FAILED) {
        static constexpr char text[] = "fault-at-call: the file of the counts cannot be used\n";
        syscall(SYS_write, STDERR_FILENO, text, sizeof text - 1);
        _exit(99);
    }
    syscall(SYS_close, descriptor);
    refusesUnnamed = std::getenv("FAULT_AT_CALL_WITHOUT_UNNAMED_FILES") != nullptr;
    certificates = std::getenv("FAULT_AT_CALL_CERTIFICATES");
    isTraced = std::getenv("FAULT_AT_CALL_TRACE") != nullptr;
    unsigned kind = 0;
    unsigned action = 0;
    unsigned long number = 0;
    int error = 0;
    if (const char* text = std::getenv("FAULT_AT_CALL");
        text != nullptr &&
        std::sscanf(text, "%u:%lu:%u:%d", &kind, &number, &action, &error) == 4) {
        fault = {
            static_cast<CallKind>(kind), number, static_cast<CallFault::Action>(action), error};
        hasFault = true;
    }
    counts = static_cast<CallCounts*>(memory);
}

using Main = int (*)(int, char**, char**);
using LibraryStart = int (*)(Main, int, char**, Main, void (*)(), void (*)(), void*);

Main mainOfProgram = nullptr;

int countedMain(int argc, char** argv, char** environment) {
    isRunningMain = true;
    const int status = mainOfProgram(argc, argv, environment);
    isRunningMain = false;
    return status;
}

} // namespace

void die() {
    syscall(SYS_kill, syscall(SYS_getpid), SIGKILL);
    for (;;) {
        syscall(SYS_sched_yield);
    }
}

Arrival arrive(CallKind kind) {
    Arrival arrival;
    if (counts == nullptr) {
        return arrival;
    }
    const std::uint64_t number =
        __atomic_add_fetch(&(*counts)[static_cast<std::size_t>(kind)], 1, __ATOMIC_RELAXED);
    if (!hasFault || kind != fault.kind) {
        return arrival;
    }
    using Action = CallFault::Action;
    const bool isThere = number == fault.number;
    if (isThere && fault.action == Action::KillBefore) {
        die();
    }
    arrival.isLast =
        isThere && (fault.action == Action::KillAfter || fault.action == Action::KillHalf);
    arrival.isHalf = isThere && fault.action == Action::KillHalf;
    arrival.fails = (isThere && fault.action == Action::Fail) ||
                    (number >= fault.number && fault.action == Action::FailFromThen);
    if (arrival.fails) {
        if (isTraced) {
            trace();
        }
        errno = fault.error;
    }
    return arrival;
}

const char* insteadOf(const char* path) {
    constexpr const char* system = "/etc/ssl/certs/ca-certificates.crt";
    return certificates != nullptr && std::strcmp(path, system) == 0 ? certificates : path;
}

bool isCounting() {
    return counts != nullptr;
}

bool isInMain() {
    return isRunningMain;
}

bool refusesUnnamedFiles() {
    return refusesUnnamed;
}

} // namespace orvel::test

/// The C library's start of a program, which calls `main`.
extern "C" int __libc_start_main( // NOLINT(bugprone-reserved-identifier)
    orvel::test::Main main,
    int argc,
    char** argv,
    orvel::test::Main initialize,
    void (*finish)(),
    void (*finishLinker)(),
    void* stackEnd) {
    orvel::test::mainOfProgram = main;
    const auto start =
        reinterpret_cast<orvel::test::LibraryStart>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return start(orvel::test::countedMain, argc, argv, initialize, finish, finishLinker, stackEnd);
}
