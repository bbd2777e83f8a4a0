// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/PropertyListUserDefaults.h"

#include "core/Errors.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <optional>

namespace orvel::test {

namespace {

/// The error code after the file could not be read.
std::optional<int> failureOf(const std::filesystem::path& file) {
    try {
        const PropertyListUserDefaults defaults(file);
        return std::nullopt;
    } catch (const tavrin::PlatformError& error) {
        return error.code();
    }
}

} // namespace

TEST(PropertyListUserDefaultsTest, ANonRegularFileIsAnErrorAndNeverBlocks) {
    const TemporaryDirectory folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), S_IRUSR | S_IWUSR), 0);
    EXPECT_EQ(failureOf(folder.path()), EISDIR);
    EXPECT_EQ(failureOf(folder / "pipe"), EINVAL);
    EXPECT_EQ(failureOf(folder / "none"), std::nullopt);
}

} // namespace orvel::test
