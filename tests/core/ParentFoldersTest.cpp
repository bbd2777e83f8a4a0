// SPDX-License-Identifier: Apache-2.0
#include "core/ParentFolders.h"

#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace tavrin {
namespace {

namespace fs = std::filesystem;

TEST(ParentFoldersTest, CreatesMissingFoldersForThisUserOnlyAndNoFile) {
    const orvel::test::TemporaryDirectory folder;
    const mode_t former = umask(0);
    createParentFolders(folder / "one/two/file");
    umask(former);
    EXPECT_EQ(fs::status(folder / "one").permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(folder / "one/two").permissions(), fs::perms::owner_all);
    EXPECT_FALSE(fs::exists(folder / "one/two/file"));
}

TEST(ParentFoldersTest, KeepsTheModeOfAnExistingFolder) {
    const orvel::test::TemporaryDirectory folder;
    fs::create_directory(folder / "one");
    fs::permissions(folder / "one", fs::perms(0755));
    createParentFolders(folder / "one/two/file");
    EXPECT_EQ(fs::status(folder / "one").permissions(), fs::perms(0755));
    EXPECT_TRUE(fs::is_directory(folder / "one/two"));
}

TEST(ParentFoldersTest, NamesTheFolderThatCannotBeCreated) {
    const orvel::test::TemporaryDirectory folder;
    EXPECT_EQ(createParentFolders(folder / "one/file"), std::nullopt);
    // Too long for a name.
    const fs::path impossible = folder / std::string(300, 'x');
    const std::optional<PlatformError> failure = createParentFolders(impossible / "two/file");
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code(), ENAMETOOLONG);
    EXPECT_TRUE(std::string(failure->what())
                    .starts_with("Could not make the folder " + impossible.string() + ": "));
}

TEST(ParentFoldersTest, IgnoresThatAFolderCannotBeCreated) {
    const orvel::test::TemporaryDirectory folder;
    std::ofstream(folder / "one") << "text";
    EXPECT_NO_THROW(createParentFolders(folder / "one/two/file"));
    EXPECT_TRUE(fs::is_regular_file(folder / "one"));
}

} // namespace
} // namespace tavrin
