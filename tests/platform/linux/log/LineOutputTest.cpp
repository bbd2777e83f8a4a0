// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/LineOutput.h"

#include "core/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>

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

TEST(LineOutputTest, ALineOfWhichOnlyTheBeginningFitsIsWrittenToItsEnd) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const tavrin::FileDescriptor reading(ends[0]);
    const tavrin::FileDescriptor writing(ends[1]);
    LineOutput output(writing.get());
    const std::string line = std::string(4 << 20, 'x') + "\n";
    std::string seen;
    output.write(line);
    std::string part(1 << 16, '\0');
    while (seen.size() < line.size()) {
        const ssize_t count = recv(reading.get(), part.data(), part.size(), MSG_DONTWAIT);
        if (count > 0) {
            seen.append(part, 0, static_cast<std::size_t>(count));
        } else {
            ASSERT_EQ(seen.find('n'), std::string::npos) << "the next line has come before";
            output.write("next\n");
        }
    }
    EXPECT_EQ(seen.substr(0, line.size()), line);
}

} // namespace orvel::test
