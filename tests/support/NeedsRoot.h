// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

namespace orvel::test {

/// For the SetUp of a suite that gives files to another user. The names of such suites end in
/// "AsRootTest"; CTest knows them by the prefix "root.".
inline void skipUnlessRoot() {
    if (geteuid() != 0) {
        GTEST_SKIP() << "Only root can give files to another user.";
    }
}

} // namespace orvel::test
