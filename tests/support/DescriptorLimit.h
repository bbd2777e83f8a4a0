// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

namespace orvel::test {

/// While it lives, this process can open no file whose descriptor would be that number or more.
class DescriptorLimit final {
public:
    explicit DescriptorLimit(rlim_t descriptors) {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = descriptors;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit before_{};
};

} // namespace orvel::test
