// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/ReadFile.h"

#include "core/Errors.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>

namespace orvel {

TEST(ReadFileTest, AFileUpToTheLimitIsRead) {
    const test::TemporaryDirectory folder;
    for (const std::string& content : {std::string(), std::string("12"), std::string("123")}) {
        std::ofstream(folder / "file") << content;
        EXPECT_EQ(readFile(folder / "file", 3), content);
    }
}

TEST(ReadFileTest, ALongerFileIsAnError) {
    const test::TemporaryDirectory folder;
    std::ofstream(folder / "file") << "1234";
    try {
        static_cast<void>(readFile(folder / "file", 3));
        ADD_FAILURE() << "Read.";
    } catch (const tavrin::PlatformError& error) {
        EXPECT_EQ(error.code(), EFBIG);
    }
}

} // namespace orvel
