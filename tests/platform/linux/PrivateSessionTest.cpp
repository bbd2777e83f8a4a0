// SPDX-License-Identifier: Apache-2.0
//
// Tests the desktop session in which this program's other tests run.
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvel::test {

TEST(PrivateSessionTest, RemovesTheHomeEvenIfAProgramIsStillWriting) {
    const TemporaryDirectory folder;
    const std::filesystem::path remover = folder / "rm";
    // Fails twice, as if a file had been added meanwhile.
    std::ofstream(remover) << "#!/bin/sh\n"
                              "echo >>\"${0%/*}/tries\"\n"
                              "[ \"$(wc -l <\"${0%/*}/tries\")\" -gt 2 ] || exit 1\n"
                              "exec /bin/rm \"$@\"\n";
    std::filesystem::permissions(remover, std::filesystem::perms::owner_all);
    Program session(
        {{PRIVATE_SESSION, "sh", "-c", "printf %s \"$HOME\""},
         {{"PATH", folder.path().string() + ":" + std::getenv("PATH")},
          {"TMPDIR", folder.path().string()}}});
    EXPECT_EQ(session.wait(), 0);
    EXPECT_THAT(session.output(), testing::StartsWith(folder.path().string()));
    EXPECT_FALSE(std::filesystem::exists(session.output()));
}

} // namespace orvel::test
