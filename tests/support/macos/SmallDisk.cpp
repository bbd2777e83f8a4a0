// SPDX-License-Identifier: Apache-2.0
#include "tests/support/SmallDisk.h"

#include <cerrno>
#include <csignal>
#include <utility>

namespace orvel::test {

SmallDisk::SmallDisk(std::filesystem::path directory, std::size_t size)
    : directory_(std::move(directory)) {
    // Nobody but the system's own programs can mount one for a single process.
    getrlimit(RLIMIT_FSIZE, &formerLimit_);
    const rlimit limit{size, formerLimit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    formerHandler_ = std::signal(SIGXFSZ, SIG_IGN);
}

SmallDisk::~SmallDisk() {
    setrlimit(RLIMIT_FSIZE, &formerLimit_);
    std::signal(SIGXFSZ, formerHandler_);
}

int SmallDisk::errorWhenFull() const {
    return EFBIG;
}

} // namespace orvel::test
