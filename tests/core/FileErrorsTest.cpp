// SPDX-License-Identifier: Apache-2.0
#include "core/FileErrors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

namespace tavrin::test {

TEST(FileErrorsTest, SaysWhatFailedWhyAndWhatToDo) {
    const PlatformError error = fileError(ENOSPC, "Could not write", "/folder/file");
    EXPECT_STREQ(
        error.what(),
        "Could not write /folder/file: No space left on device. Free some space on this disk, then "
        "try again.");
    EXPECT_EQ(error.code(), ENOSPC);
    EXPECT_EQ(error.domain(), posixErrorDomain);
}

TEST(FileErrorsTest, EachReasonHasItsOwnRemedy) {
    std::set<std::string> remedies;
    for (const int code : {ENOSPC, EDQUOT, EROFS, EACCES, ENOENT, EMFILE, EIO, EXDEV}) {
        const std::string text = fileError(code, "Could not write", "file").what();
        EXPECT_THAT(text, testing::EndsWith("."));
        remedies.insert(text.substr(text.find(". ")));
    }
    EXPECT_EQ(remedies.size(), 8U);
}

} // namespace tavrin::test
