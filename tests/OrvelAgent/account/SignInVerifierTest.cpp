// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/SignInVerifier.h"

#include "core/Errors.h"
#include "tests/support/linux/SystemCalls.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <string>

namespace orvel {

TEST(SignInVerifierTest, WithoutRandomNumbersOfTheSystemThereIsNoVerifier) {
    std::string failure;
    test::withFailingCall(SYS_getrandom, ENOSYS, [&failure] {
        try {
            static_cast<void>(SignInVerifier::makeVerifier());
        } catch (const tavrin::PlatformError& error) {
            failure = error.what();
        }
    });
    EXPECT_EQ(failure, "The system gives no random numbers: Function not implemented");
}

} // namespace orvel
