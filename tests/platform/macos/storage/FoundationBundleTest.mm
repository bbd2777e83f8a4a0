// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/FoundationBundle.h"

#include "platform/macos/support/FoundationConversions.h"
#include "tests/platform/WrittenPropertyList.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace orvel::test {

namespace {

class FoundationBundleTest : public testing::Test {
protected:
    FoundationBundleTest() {
        std::filesystem::create_directories(folder_ / "named");
        writeFile(folder_ / "named/Info.plist", dictionary({{"CFBundleIdentifier", "named"}}));
    }

    static NSBundle* bundleAt(const std::filesystem::path& path) {
        return [NSBundle bundleWithPath:nsString(path.string())];
    }

    TemporaryDirectory folder_;
};

} // namespace

TEST_F(FoundationBundleTest, AnApplicationDoesNotUseTheNamedFolder) {
    const std::filesystem::path contents = folder_ / "Test.app/Contents";
    std::filesystem::create_directories(contents / "Resources");
    writeFile(contents / "Info.plist", dictionary({{"CFBundleIdentifier", "application"}}));
    NSBundle* const main = bundleAt(folder_ / "Test.app");
    EXPECT_EQ(FoundationBundle::ofProgram(main, folder_ / "named")->identifier(), "application");
    EXPECT_EQ(FoundationBundle::ofProgram(main, "")->identifier(), "application");
}

TEST_F(FoundationBundleTest, AProgramOutsideABundleUsesTheNamedFolder) {
    std::filesystem::create_directories(folder_ / "build/bin");
    std::filesystem::create_directories(folder_ / "build/resources");
    writeFile(
        folder_ / "build/resources/Info.plist", dictionary({{"CFBundleIdentifier", "built"}}));
    NSBundle* const main = bundleAt(folder_ / "build/bin");
    EXPECT_EQ(FoundationBundle::ofProgram(main, folder_ / "named")->identifier(), "named");
    EXPECT_EQ(FoundationBundle::ofProgram(main, "")->identifier(), "built");
}

} // namespace orvel::test
