// SPDX-License-Identifier: Apache-2.0
#include "core/FileLock.h"

#include "core/Errors.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace tavrin {
namespace {

namespace fs = std::filesystem;

class FileLockTest : public testing::Test {
protected:
    /// The code of the error when locking fails, or 0.
    static int failure(const fs::path& file) {
        try {
            EXPECT_NE(tryLockFile(file), nullptr);
        } catch (const PlatformError& error) {
            EXPECT_EQ(error.domain(), posixErrorDomain);
            EXPECT_TRUE(std::string(error.what()).starts_with("Could not lock " + file.string()));
            return error.code();
        }
        return 0;
    }

    orvel::test::TemporaryDirectory folder_;
};

TEST_F(FileLockTest, ExcludesOthersUntilItEnds) {
    std::unique_ptr<Interface> lock = tryLockFile(folder_ / "lock");
    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(tryLockFile(folder_ / "lock"), nullptr);
    EXPECT_NE(tryLockFile(folder_ / "other"), nullptr);
    lock.reset();
    EXPECT_NE(tryLockFile(folder_ / "lock"), nullptr);
    EXPECT_TRUE(fs::exists(folder_ / "lock"));
}

TEST_F(FileLockTest, CreatesTheFileAndItsFoldersForThisUserOnly) {
    const mode_t former = umask(0);
    EXPECT_NE(tryLockFile(folder_ / "one/two/lock"), nullptr);
    umask(former);

    for (const char* const name : {"one", "one/two"}) {
        EXPECT_EQ(fs::status(folder_ / name).permissions(), fs::perms::owner_all) << name;
    }
    EXPECT_EQ(
        fs::status(folder_ / "one/two/lock").permissions(),
        fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(FileLockTest, AFileThatCannotBeOpenedIsAnError) {
    std::ofstream(folder_ / "file") << "text";
    EXPECT_EQ(failure(folder_ / "file/lock"), ENOTDIR);
    EXPECT_EQ(failure(folder_.path()), EISDIR);
}

TEST_F(FileLockTest, FollowsNoLink) {
    fs::create_symlink(folder_ / "elsewhere", folder_ / "lock");
    EXPECT_EQ(failure(folder_ / "lock"), ELOOP);
    EXPECT_FALSE(fs::exists(folder_ / "elsewhere"));
}

class FileLockAsRootTest : public FileLockTest {
protected:
    void SetUp() override { orvel::test::skipUnlessRoot(); }
};

TEST_F(FileLockAsRootTest, LocksNoFileOfAnotherUser) {
    std::ofstream(folder_ / "lock") << "";
    ASSERT_EQ(chown((folder_ / "lock").c_str(), 65534, 65534), 0);
    EXPECT_EQ(failure(folder_ / "lock"), EPERM);
}

} // namespace
} // namespace tavrin
