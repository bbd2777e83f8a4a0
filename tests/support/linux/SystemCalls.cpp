// SPDX-License-Identifier: Apache-2.0
#include "tests/support/linux/SystemCalls.h"

#include <dlfcn.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

/// A file, and its permissions when it was flushed.
struct Flush {
    dev_t device;
    ino_t number;
    unsigned mode;
};

std::mutex flushMutex;
std::vector<Flush> flushed;
std::function<void()> beforeRenaming;

/// The function of a library that is loaded into the program (tests/support/linux/FaultAtCall.h),
/// or of the C library.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void noteFlush(int file) {
    struct stat status {};
    if (fstat(file, &status) == 0) {
        const std::lock_guard lock(flushMutex);
        flushed.push_back({status.st_dev, status.st_ino, status.st_mode & 07777U});
    }
}

/// The flushes of this file, in their order.
std::vector<Flush> flushesOf(const std::filesystem::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    const std::lock_guard lock(flushMutex);
    std::vector<Flush> flushes;
    std::ranges::copy_if(flushed, std::back_inserter(flushes), [&](const Flush& flush) {
        return flush.device == status.st_dev && flush.number == status.st_ino;
    });
    return flushes;
}

} // namespace

} // namespace orvel::test

/// In place of the C library's.
extern "C" int fsync(int file) {
    orvel::test::noteFlush(file);
    return orvel::test::next<int(int)>("fsync")(file);
}

/// In place of the C library's. Qt uses it.
extern "C" int fdatasync(int file) {
    orvel::test::noteFlush(file);
    return orvel::test::next<int(int)>("fdatasync")(file);
}

/// In place of the C library's.
extern "C" int renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
    if (orvel::test::beforeRenaming) {
        orvel::test::beforeRenaming();
    }
    return orvel::test::next<int(int, const char*, int, const char*)>("renameat")(
        oldFolder, oldName, newFolder, newName);
}

namespace orvel::test {

FlushCounter::FlushCounter() {
    const std::lock_guard lock(flushMutex);
    flushed.clear();
}

FlushCounter::~FlushCounter() = default;

std::size_t FlushCounter::count(const std::filesystem::path& file) const {
    return flushesOf(file).size();
}

std::optional<unsigned> FlushCounter::lastMode(const std::filesystem::path& file) const {
    const std::vector<Flush> flushes = flushesOf(file);
    return flushes.empty() ? std::nullopt : std::optional(flushes.back().mode);
}

BeforeRenaming::BeforeRenaming(std::function<void()> action) {
    beforeRenaming = std::move(action);
}

BeforeRenaming::~BeforeRenaming() {
    beforeRenaming = nullptr;
}

void failCall(int systemCall, int error) {
    std::array filter{
        sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(systemCall), 0, 1),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{filter.size(), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        throw std::system_error(errno, std::generic_category(), "prctl");
    }
}

void withFailingCall(int systemCall, int error, const std::function<void()>& work) {
    std::thread([=, &work] {
        failCall(systemCall, error);
        work();
    }).join();
}

} // namespace orvel::test
