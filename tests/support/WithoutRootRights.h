// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace orvel::test {

/// Gives up the rights of root while it lives, so that file permissions count for tests that run
/// as root; nothing for anyone else. The whole process changes, other threads too.
class WithoutRootRights final {
public:
    WithoutRootRights() : before_(geteuid()) {
        constexpr uid_t nobody = 65534;
        if (before_ == 0 && seteuid(nobody) != 0) {
            throw std::system_error(errno, std::generic_category(), "seteuid");
        }
    }
    ~WithoutRootRights() {
        if (before_ == 0) {
            // Back to what this process was: cannot fail.
            static_cast<void>(seteuid(before_) == 0);
        }
    }
    WithoutRootRights(const WithoutRootRights&) = delete;
    WithoutRootRights& operator=(const WithoutRootRights&) = delete;

private:
    uid_t before_;
};

} // namespace orvel::test
