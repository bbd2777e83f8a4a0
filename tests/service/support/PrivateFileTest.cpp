// SPDX-License-Identifier: Apache-2.0
#include "service/support/PrivateFile.h"

#include "service/support/ServiceError.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvel::test {
namespace {

namespace fs = std::filesystem;
using service::PrivateFile;
using service::ServiceError;

class PrivateFileTest : public testing::Test {
protected:
    static std::string contentOf(const fs::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    /// Whether the file at the path is refused in both modes.
    static bool isRefused(const fs::path& path) {
        int refusals = 0;
        for (const auto mode : {PrivateFile::Mode::Append, PrivateFile::Mode::Replace}) {
            try {
                PrivateFile(path, mode).write("secret");
            } catch (const ServiceError&) {
                ++refusals;
            }
        }
        return refusals == 2;
    }

    static bool isRefusedDirectory(const fs::path& path) {
        try {
            service::makePrivateDirectory(path);
            return false;
        } catch (const ServiceError&) {
            return true;
        }
    }

    static mode_t modeOf(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    TemporaryDirectory directory_;
    fs::path file_ = directory_ / "file";
    fs::path other_ = directory_ / "other";
};

class PrivateFileAsRootTest : public PrivateFileTest {
protected:
    void SetUp() override { skipUnlessRoot(); }
};

TEST_F(PrivateFileTest, TakesAccessFromOthers) {
    std::ofstream(file_) << "before";
    chmod(file_.c_str(), 0666);

    PrivateFile(file_, PrivateFile::Mode::Append).write(" and after");
    EXPECT_EQ(contentOf(file_), "before and after");
    EXPECT_EQ(modeOf(file_), 0600U);

    PrivateFile(file_, PrivateFile::Mode::Replace).write("new");
    EXPECT_EQ(contentOf(file_), "new");
}

TEST_F(PrivateFileTest, FollowsNoLink) {
    std::ofstream(other_) << "untouched";
    fs::create_symlink(other_, file_);
    EXPECT_TRUE(isRefused(file_));

    fs::remove(file_);
    fs::create_symlink(directory_ / "missing", file_);
    EXPECT_TRUE(isRefused(file_));
    EXPECT_FALSE(fs::exists(directory_ / "missing"));

    fs::remove(file_);
    fs::create_hard_link(other_, file_);
    EXPECT_TRUE(isRefused(file_));
    EXPECT_EQ(contentOf(other_), "untouched");
}

TEST_F(PrivateFileTest, IsARegularFile) {
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_TRUE(isRefused(file_));
    EXPECT_TRUE(isRefused("/dev/null"));
}

TEST_F(PrivateFileTest, ANewDirectoryIsPrivate) {
    service::makePrivateDirectory(directory_ / "new/inner");
    EXPECT_EQ(modeOf(directory_ / "new/inner"), 0700U);
}

TEST_F(PrivateFileTest, ADirectoryThatOthersCanWriteToIsRefused) {
    for (const mode_t mode : {0777U, 01777U, 0702U}) {
        chmod(directory_.path().c_str(), mode);
        EXPECT_TRUE(isRefusedDirectory(directory_.path())) << mode;
    }
    for (const mode_t mode : {0755U, 0700U}) {
        chmod(directory_.path().c_str(), mode);
        EXPECT_FALSE(isRefusedDirectory(directory_.path())) << mode;
    }
}

TEST_F(PrivateFileAsRootTest, ADirectoryMayBeWritableForThePrivateGroupOnly) {
    for (const mode_t mode : {0770U, 0775U}) {
        chmod(directory_.path().c_str(), mode);
        EXPECT_FALSE(isRefusedDirectory(directory_.path())) << mode;
    }
    ASSERT_EQ(chown(directory_.path().c_str(), 0, 65534), 0);
    try {
        service::makePrivateDirectory(directory_.path());
        ADD_FAILURE() << "a directory for another group is accepted";
    } catch (const service::ServiceError& error) {
        EXPECT_EQ(
            error.what(),
            "The file " + directory_.path().string() +
                " cannot be used: its group may change its files; remove that right with chmod "
                "g-w.");
    }
}

TEST_F(PrivateFileAsRootTest, FilesAndDirectoriesOfOthersAreRefused) {
    constexpr uid_t nobody = 65534;
    std::ofstream(file_) << "untouched";
    ASSERT_EQ(chown(file_.c_str(), nobody, nobody), 0);
    EXPECT_TRUE(isRefused(file_));
    EXPECT_EQ(contentOf(file_), "untouched");

    fs::create_directory(other_);
    EXPECT_FALSE(isRefusedDirectory(other_));
    ASSERT_EQ(chown(other_.c_str(), nobody, nobody), 0);
    EXPECT_TRUE(isRefusedDirectory(other_));
}

} // namespace
} // namespace orvel::test
