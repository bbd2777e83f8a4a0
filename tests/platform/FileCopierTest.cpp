// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for this system's file copier.
#include "core/messages/FileCopier.h"

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "tests/platform/CopyFailure.h"
#include "tests/platform/RealFileCopier.h"
#include "tests/support/FileContent.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace orvel::test {
namespace {

namespace fs = std::filesystem;
using tavrin::CancellationSource;
using tavrin::CancellationToken;
using tavrin::FileCopier;
using tavrin::TaskCancelled;

class FileCopierTest : public testing::Test {
protected:
    TemporaryDirectory directory_;
    fs::path source_ = directory_ / "source";
    fs::path destination_ = directory_ / "destination";
    std::unique_ptr<FileCopier> copier_ = makeRealFileCopier();
};

TEST_F(FileCopierTest, CopiesEveryByte) {
    for (const std::string& content :
         {std::string(), std::string("a\0b", 3), std::string(9'000'001, 'x')}) {
        writeFile(source_, content);
        copier_->copy(source_, destination_, CancellationToken());
        EXPECT_TRUE(contentOf(destination_) == content);
        fs::remove(destination_);
    }
}

TEST_F(FileCopierTest, MakesACopyThatOnlyTheOwnerCanRead) {
    writeFile(source_, "content");
    fs::permissions(source_, fs::perms::all);

    copier_->copy(source_, destination_, CancellationToken());

    EXPECT_EQ(
        fs::status(destination_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(FileCopierTest, DoesNotOverwriteAnExistingFile) {
    writeFile(source_, "new");
    writeFile(destination_, "old");

    EXPECT_EQ(copyFailure(*copier_, source_, destination_), EEXIST);
    EXPECT_EQ(contentOf(destination_), "old");
}

TEST_F(FileCopierTest, DoesNotFollowALinkAtTheDestination) {
    writeFile(source_, "new");
    const fs::path target = directory_ / "target";
    fs::create_symlink(target, destination_);

    EXPECT_EQ(copyFailure(*copier_, source_, destination_), EEXIST);
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(FileCopierTest, FailsWithoutASource) {
    EXPECT_EQ(copyFailure(*copier_, source_, destination_), ENOENT);
    EXPECT_FALSE(fs::exists(destination_));
}

TEST_F(FileCopierTest, FailsWithAnUnreadableSource) {
    writeFile(source_, "content");
    fs::permissions(source_, fs::perms::none);
    fs::permissions(directory_.path(), fs::perms::all);
    const UnprivilegedUser unprivileged;

    EXPECT_EQ(copyFailure(*copier_, source_, destination_), EACCES);
    EXPECT_FALSE(fs::exists(destination_));
}

TEST_F(FileCopierTest, FailsWithADirectoryAsTheSource) {
    fs::create_directory(source_);

    EXPECT_EQ(copyFailure(*copier_, source_, destination_), EISDIR);
}

TEST_F(FileCopierTest, DoesNotWaitForAPipeAsTheSource) {
    ASSERT_EQ(mkfifo(source_.c_str(), 0600), 0);

    EXPECT_EQ(copyFailure(*copier_, source_, destination_), EINVAL);
}

TEST_F(FileCopierTest, RemovesTheIncompleteCopyOnAFullDisk) {
    writeFile(source_, std::string(std::size_t{4} << 20, 'x'));
    const fs::path disk = directory_ / "disk";
    fs::create_directory(disk);
    const SmallDisk full(disk, std::size_t{1} << 20);

    EXPECT_EQ(copyFailure(*copier_, source_, disk / "destination"), full.errorWhenFull());
    EXPECT_TRUE(fs::is_empty(disk));
}

TEST_F(FileCopierTest, DoesNothingWhenAlreadyCancelled) {
    writeFile(source_, "content");
    CancellationSource cancellation;
    cancellation.cancel();

    EXPECT_THROW(copier_->copy(source_, destination_, cancellation.token()), TaskCancelled);
    EXPECT_FALSE(fs::exists(destination_));
}

} // namespace
} // namespace orvel::test
