// SPDX-License-Identifier: Apache-2.0
#include "tests/support/linux/SystemCalls.h"

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
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

/// Device and number of a file.
using File = std::pair<dev_t, ino_t>;

std::mutex flushMutex;
std::vector<File> flushed;
std::function<void()> beforeRenaming;

void noteFlush(int file) {
    struct stat status {};
    if (fstat(file, &status) == 0) {
        const std::lock_guard lock(flushMutex);
        flushed.emplace_back(status.st_dev, status.st_ino);
    }
}

} // namespace

} // namespace orvel::test

/// In place of the C library's.
extern "C" int fsync(int file) {
    orvel::test::noteFlush(file);
    return static_cast<int>(syscall(SYS_fsync, file));
}

/// In place of the C library's. Qt uses it.
extern "C" int fdatasync(int file) {
    orvel::test::noteFlush(file);
    return static_cast<int>(syscall(SYS_fdatasync, file));
}

/// In place of the C library's.
extern "C" int renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
    if (orvel::test::beforeRenaming) {
        orvel::test::beforeRenaming();
    }
    return static_cast<int>(syscall(SYS_renameat, oldFolder, oldName, newFolder, newName));
}

namespace orvel::test {

FlushCounter::FlushCounter() {
    const std::lock_guard lock(flushMutex);
    flushed.clear();
}

FlushCounter::~FlushCounter() = default;

std::size_t FlushCounter::count(const std::filesystem::path& file) const {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    const std::lock_guard lock(flushMutex);
    return static_cast<std::size_t>(
        std::ranges::count(flushed, File(status.st_dev, status.st_ino)));
}

BeforeRenaming::BeforeRenaming(std::function<void()> action) {
    beforeRenaming = std::move(action);
}

BeforeRenaming::~BeforeRenaming() {
    beforeRenaming = nullptr;
}

void withFailingCall(int systemCall, int error, const std::function<void()>& work) {
    std::thread([=, &work] {
        std::array filter{
            sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            sock_filter BPF_JUMP(
                BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(systemCall), 0, 1),
            sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
            sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
        const sock_fprog program{filter.size(), filter.data()};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
            throw std::system_error(errno, std::generic_category(), "prctl");
        }
        work();
    }).join();
}

} // namespace orvel::test
