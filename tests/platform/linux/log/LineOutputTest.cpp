// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/LineOutput.h"

#include "core/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace orvel::test {

TEST(LineOutputTest, NothingIsWrittenToAFileThatTakesAClosedNumberLater) {
    const TemporaryDirectory folder;
    const auto path = folder / "other";
    const tavrin::FileDescriptor other(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    const int number = fcntl(other.get(), F_DUPFD_CLOEXEC, 0);
    ASSERT_GE(number, 0);
    close(number);
    LineOutput output(number);
    const tavrin::FileDescriptor taken(fcntl(other.get(), F_DUPFD_CLOEXEC, number));
    ASSERT_EQ(taken.get(), number);
    output.write("line\n");
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
}

} // namespace orvel::test
