// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"

#include <gtest/gtest.h>

#include <string>

namespace tavrin {

TEST(PlatformErrorTest, ItsDescriptionIsCutAndCleaned) {
    const PlatformError error("domain", 1, "\x1B\u202E" + std::string(1'000'000, 'x'));
    EXPECT_EQ(error.what(), "\uFFFD\uFFFD" + std::string(498, 'x'));
    EXPECT_STREQ(PlatformError("domain", 1, "No such file.").what(), "No such file.");
}

} // namespace tavrin
