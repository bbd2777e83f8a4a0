// SPDX-License-Identifier: Apache-2.0
#include "core/WriteAccess.h"

#include "core/FileDescriptor.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace tavrin {

namespace {

constexpr uid_t otherUser = 65534;
constexpr gid_t otherGroup = 65534;

struct stat folder(mode_t mode, uid_t owner, gid_t group) {
    struct stat status {};
    status.st_mode = S_IFDIR | mode;
    status.st_uid = owner;
    status.st_gid = group;
    return status;
}

/// Of a user "ann" with the primary group 1000, and a group with that number, name and members.
bool isPrivate(gid_t number, std::string name, std::vector<std::string> members) {
    std::string userName = "ann";
    passwd user{};
    user.pw_name = userName.data();
    user.pw_gid = 1000;
    std::vector<char*> list;
    for (std::string& member : members) {
        list.push_back(member.data());
    }
    list.push_back(nullptr);
    group group{};
    group.gr_gid = number;
    group.gr_name = name.data();
    group.gr_mem = list.data();
    return isPrivateGroup(user, group);
}

/// A file in folders, each of which belongs to this user and only this user may write to.
class PathAccessTest : public testing::Test {
protected:
    PathAccessTest() {
        std::filesystem::create_directories(folder_ / "one/two");
        std::ofstream(file_) << "text";
    }

    [[nodiscard]] bool canOthersChangeFile() const { return canOthersChange(file_); }

    orvel::test::TemporaryDirectory folder_;
    const std::filesystem::path file_ = folder_ / "one/two/file";
};

class PathAccessAsRootTest : public PathAccessTest {
protected:
    void SetUp() override { orvel::test::skipUnlessRoot(); }
};

class WriteAccessAsRootTest : public testing::Test {
protected:
    void SetUp() override { orvel::test::skipUnlessRoot(); }
};

} // namespace

TEST(WriteAccessTest, APrivateGroupIsThePrimaryOneWithTheUsersNameAndNoOtherMember) {
    EXPECT_TRUE(isPrivate(1000, "ann", {}));
    EXPECT_TRUE(isPrivate(1000, "ann", {"ann"}));
    EXPECT_FALSE(isPrivate(1001, "ann", {}));
    EXPECT_FALSE(isPrivate(1000, "users", {}));
    EXPECT_FALSE(isPrivate(1000, "ann", {"ben"}));
    EXPECT_FALSE(isPrivate(1000, "ann", {"ann", "ben"}));
}

TEST(WriteAccessTest, FoldersOfOtherUsersAndFoldersThatAllMayWriteAreShared) {
    for (const mode_t mode : {0700U, 0755U, 01777U}) {
        const struct stat theirs = folder(mode, geteuid() + 1, getegid());
        EXPECT_TRUE(canOthersWrite(theirs)) << std::oct << mode;
        EXPECT_TRUE(canOthersReplaceFiles(theirs)) << std::oct << mode;
    }
    for (const uid_t owner : {geteuid(), uid_t{0}}) {
        EXPECT_FALSE(canOthersWrite(folder(0755, owner, otherGroup)));
        EXPECT_TRUE(canOthersWrite(folder(0757, owner, getegid())));
        EXPECT_TRUE(canOthersReplaceFiles(folder(0757, owner, getegid())));
        EXPECT_TRUE(canOthersWrite(folder(01777, owner, getegid())));
        EXPECT_FALSE(canOthersReplaceFiles(folder(01777, owner, getegid())));
    }
}

// Root's group is private on every system that the tests run on.
TEST_F(WriteAccessAsRootTest, AFolderMayBeWritableForThePrivateGroupOnly) {
    for (const mode_t mode : {0775U, 0770U, 0664U}) {
        EXPECT_FALSE(canOthersWrite(folder(mode, 0, 0))) << std::oct << mode;
        EXPECT_FALSE(canOthersReplaceFiles(folder(mode, 0, 0))) << std::oct << mode;
        EXPECT_TRUE(canOthersWrite(folder(mode, 0, otherGroup))) << std::oct << mode;
        EXPECT_TRUE(canOthersReplaceFiles(folder(mode, 0, otherGroup))) << std::oct << mode;
        EXPECT_TRUE(canOthersWrite(folder(mode, otherUser, 0))) << std::oct << mode;
    }
}

TEST_F(PathAccessTest, TheFileAndAllFoldersAboveItCount) {
    EXPECT_FALSE(canOthersChangeFile());
    EXPECT_FALSE(canOthersChange(file_.parent_path()));
    for (const char* const name : {"one/two/file", "one/two", "one"}) {
        const std::filesystem::path entry = folder_ / name;
        chmod(entry.c_str(), 0707);
        EXPECT_TRUE(canOthersChangeFile()) << name;
        chmod(entry.c_str(), 0705);
        EXPECT_FALSE(canOthersChangeFile()) << name;
    }
}

TEST_F(PathAccessTest, TheStickyBitProtectsExistingEntriesOnly) {
    chmod((folder_ / "one").c_str(), 01777);
    EXPECT_FALSE(canOthersChangeFile());
    EXPECT_TRUE(canOthersChange(folder_ / "one"));
    EXPECT_TRUE(canOthersChange(folder_ / "one/missing"));
    EXPECT_FALSE(canOthersChange(folder_ / "one/two/missing"));
}

TEST_F(PathAccessTest, LinksAreFollowed) {
    chmod((folder_ / "one").c_str(), 0707);
    std::filesystem::create_symlink("one/two", folder_ / "link");
    std::filesystem::create_directory(folder_ / "other");
    std::filesystem::create_symlink(file_, folder_ / "other/absolute");
    std::filesystem::create_symlink("../other/./absolute", folder_ / "other/twice");
    std::filesystem::create_symlink("circle", folder_ / "circle");
    for (const char* const name : {"link/file", "other/absolute", "other/twice"}) {
        EXPECT_TRUE(canOthersChange(folder_ / name)) << name;
    }
    EXPECT_TRUE(canOthersChange(folder_ / "circle/file"));
    chmod((folder_ / "one").c_str(), 0700);
    for (const char* const name : {"link/file", "other/absolute", "other/twice"}) {
        EXPECT_FALSE(canOthersChange(folder_ / name)) << name;
    }
}

// In such a namespace, the folders of the system seem to belong to a user without a number.
TEST_F(PathAccessTest, FoldersOfUsersThatTheNamespaceDoesNotHaveAreTheSystems) {
    const std::filesystem::path file = folder_ / "file";
    std::ofstream(file) << "text";
    const std::string map = "1000 " + std::to_string(geteuid()) + " 1";
    constexpr int isForbidden = 77;
    const pid_t child = fork();
    if (child == 0) {
        const FileDescriptor mapped(
            unshare(CLONE_NEWUSER) == 0 ? open("/proc/self/uid_map", O_WRONLY | O_CLOEXEC) : -1);
        const bool isMapped = write(mapped.get(), map.data(), map.size()) > 0;
        _exit(!isMapped ? isForbidden : canOthersChange(file) ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WEXITSTATUS(status) == isForbidden) {
        GTEST_SKIP() << "This system does not let the user make a namespace.";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(PathAccessAsRootTest, EntriesOfOtherUsersCount) {
    for (const char* const name : {"one/two/file", "one/two", "one"}) {
        const std::filesystem::path entry = folder_ / name;
        ASSERT_EQ(chown(entry.c_str(), otherUser, otherGroup), 0);
        EXPECT_TRUE(canOthersChangeFile()) << name;
        ASSERT_EQ(chown(entry.c_str(), 0, 0), 0);
    }
    std::filesystem::create_symlink("one", folder_ / "link");
    EXPECT_FALSE(canOthersChange(folder_ / "link/two/file"));
    ASSERT_EQ(lchown((folder_ / "link").c_str(), otherUser, otherGroup), 0);
    EXPECT_TRUE(canOthersChange(folder_ / "link/two/file"));
}

} // namespace tavrin
