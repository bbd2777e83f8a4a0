// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/Permissions.h"

#include "OrvelAgent/base/Worker.h"
#include "core/FileDescriptor.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

namespace orvel::test {

namespace {

namespace fs = std::filesystem;

class PermissionsTest : public testing::Test {
protected:
    PermissionsTest() {
        fs::create_directories(messages());
        // Allow all users, so that only what a test forbids is forbidden.
        fs::permissions(home_.path(), fs::perms::all);
    }

    [[nodiscard]] fs::path messages() const { return home_ / "Library/Messages"; }
    [[nodiscard]] fs::path database() const { return messages() / "chat.db"; }

    void write(const std::string& content) const { std::ofstream(database()) << content; }

    [[nodiscard]] bool hasAccess() const { return Permissions::hasFullDiskAccess(database()); }

    TemporaryDirectory home_;
};

} // namespace

TEST_F(PermissionsTest, AReadableDatabaseIsAccess) {
    write("SQLite format 3");
    const UnprivilegedUser user;
    EXPECT_TRUE(hasAccess());
}

TEST_F(PermissionsTest, AnEmptyDatabaseIsAccess) {
    write("");
    EXPECT_TRUE(hasAccess());
}

TEST_F(PermissionsTest, APathThatIsNotUTF8IsAccess) {
    const fs::path folder = home_ / "Caf\xe9";
    fs::create_directory(folder);
    std::ofstream(folder / "chat.db") << "SQLite format 3";
    EXPECT_TRUE(Permissions::hasFullDiskAccess(folder / "chat.db"));
}

TEST_F(PermissionsTest, AMissingDatabaseIsNoAccess) {
    EXPECT_FALSE(hasAccess());
    fs::remove_all(home_ / "Library");
    EXPECT_FALSE(hasAccess());
    EXPECT_FALSE(fs::exists(home_ / "Library")) << "the probe creates no file";
}

TEST_F(PermissionsTest, AnUnreadableDatabaseIsNoAccess) {
    write("SQLite format 3");
    fs::permissions(database(), fs::perms::owner_write);
    const UnprivilegedUser user;
    EXPECT_FALSE(hasAccess());
}

TEST_F(PermissionsTest, AnInaccessibleFolderIsNoAccess) {
    write("SQLite format 3");
    fs::permissions(messages(), fs::perms::none);
    const UnprivilegedUser user;
    EXPECT_FALSE(hasAccess());
}

TEST_F(PermissionsTest, AFolderInsteadOfAFileIsNoAccess) {
    fs::create_directory(database());
    EXPECT_FALSE(hasAccess());
}

TEST_F(PermissionsTest, APipeInsteadOfAFileIsNoAccessAndIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(database().c_str(), 0600), 0);
    auto probe = std::async(std::launch::async, [this] { return hasAccess(); });
    const bool isDone = probe.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    EXPECT_TRUE(isDone);
    // Ends a probe that waits for a writer.
    const tavrin::FileDescriptor writer(open(database().c_str(), O_RDWR | O_NONBLOCK));
    EXPECT_FALSE(isDone && probe.get());
}

TEST_F(PermissionsTest, DetectsAccessThatIsGrantedLater) {
    write("SQLite format 3");
    fs::permissions(database(), fs::perms::none);
    const auto hasAccessAsUser = [this] {
        const UnprivilegedUser user;
        return hasAccess();
    };
    EXPECT_FALSE(hasAccessAsUser());
    fs::permissions(database(), fs::perms::all);
    EXPECT_TRUE(hasAccessAsUser());
}

TEST_F(PermissionsTest, TheProbeOnTheWorkerGivesTheSameResult) {
    Worker worker;
    EXPECT_FALSE(runTask(Permissions::probeFullDiskAccess(&worker, database())));
    write("SQLite format 3");
    EXPECT_TRUE(runTask(Permissions::probeFullDiskAccess(&worker, database())));
}

} // namespace orvel::test
