// SPDX-License-Identifier: Apache-2.0
#include "tests/support/SmallDisk.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <utility>

namespace orvel::test {

SmallDisk::SmallDisk(std::filesystem::path directory, std::size_t size)
    : directory_(std::move(directory)) {
    const std::string options = "size=" + std::to_string(size);
    isMounted_ = unshare(CLONE_NEWNS) == 0 &&
                 mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount("none", directory_.c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (!isMounted_) {
        getrlimit(RLIMIT_FSIZE, &formerLimit_);
        const rlimit limit{size, formerLimit_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        formerHandler_ = std::signal(SIGXFSZ, SIG_IGN);
    }
}

SmallDisk::~SmallDisk() {
    if (isMounted_) {
        umount2(directory_.c_str(), MNT_DETACH);
    } else {
        setrlimit(RLIMIT_FSIZE, &formerLimit_);
        std::signal(SIGXFSZ, formerHandler_);
    }
}

int SmallDisk::errorWhenFull() const {
    return isMounted_ ? ENOSPC : EFBIG;
}

} // namespace orvel::test
