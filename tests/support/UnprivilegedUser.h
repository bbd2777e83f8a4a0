// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <exception>
#include <stdexcept>

namespace orvel::test {

/// Makes file permissions count in tests that run as root: acts as a user without rights for as
/// long as the object lives. For any other user it does nothing.
class UnprivilegedUser final {
public:
    UnprivilegedUser() {
        if (former_ == 0 && seteuid(nobody) != 0) {
            throw std::runtime_error("cannot drop root's rights");
        }
    }
    ~UnprivilegedUser() {
        if (former_ == 0 && seteuid(0) != 0) {
            std::terminate();
        }
    }
    UnprivilegedUser(const UnprivilegedUser&) = delete;
    UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;

private:
    static constexpr uid_t nobody = 65534;

    uid_t former_ = geteuid();
};

} // namespace orvel::test
