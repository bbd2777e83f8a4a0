// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/InstanceLock.h"

#include "tests/support/NeedsRoot.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <QByteArray>
#include <QtGlobal>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <variant>

namespace orvel::test {

namespace {

constexpr auto identifier = "app.test.Lock";

class InstanceLockTest : public testing::Test {
protected:
    ~InstanceLockTest() override { qputenv("XDG_RUNTIME_DIR", runtime_); }

    std::filesystem::path file() const { return folder_ / "app.test.Lock.lock"; }

    /// Takes the lock in another process and returns its outcome.
    std::string otherProcess() {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
        const pid_t pid = fork();
        if (pid == 0) {
            InstanceLock lock;
            const auto outcome = lock.take(folder_.path(), identifier);
            std::int64_t holder = std::holds_alternative<InstanceLock::Held>(outcome) ? 0 : -1;
            if (const auto* other = std::get_if<InstanceLock::HeldBy>(&outcome)) {
                holder = other->processIdentifier;
            }
            _exit(write(ends[1], &holder, sizeof(holder)) == sizeof(holder) ? 0 : 1);
        }
        close(ends[1]);
        std::int64_t holder = -1;
        EXPECT_EQ(read(ends[0], &holder, sizeof(holder)), ssize_t{sizeof(holder)});
        close(ends[0]);
        waitpid(pid, nullptr, 0);
        return holder == 0 ? "held" : holder == getpid() ? "held by us" : "unavailable";
    }

    TemporaryDirectory folder_;
    QByteArray runtime_ = qgetenv("XDG_RUNTIME_DIR");
};

class InstanceLockAsRootTest : public InstanceLockTest {
protected:
    void SetUp() override { skipUnlessRoot(); }
};

} // namespace

TEST_F(InstanceLockTest, OneProcessHoldsIt) {
    InstanceLock lock;
    ASSERT_TRUE(std::holds_alternative<InstanceLock::Held>(lock.take(folder_.path(), identifier)));
    EXPECT_EQ(otherProcess(), "held by us");
}

TEST_F(InstanceLockTest, IsReleasedWhenItsHolderEnds) {
    {
        InstanceLock lock;
        static_cast<void>(lock.take(folder_.path(), identifier));
    }
    EXPECT_TRUE(std::filesystem::exists(file()));
    EXPECT_EQ(otherProcess(), "held");
}

TEST_F(InstanceLockTest, IgnoresAFileLeftByAnEarlierHolder) {
    std::ofstream(file()) << getppid() << '\n';
    EXPECT_EQ(otherProcess(), "held");
}

TEST_F(InstanceLockTest, OthersCannotOpenTheFile) {
    InstanceLock lock;
    static_cast<void>(lock.take(folder_.path(), identifier));
    struct stat status {};
    ASSERT_EQ(stat(file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(InstanceLockTest, DoesNotFollowALink) {
    std::ofstream(folder_ / "precious") << "content";
    std::filesystem::create_symlink(folder_ / "precious", file());
    InstanceLock lock;
    EXPECT_TRUE(
        std::holds_alternative<InstanceLock::Unavailable>(lock.take(folder_.path(), identifier)));
}

TEST_F(InstanceLockTest, WithoutAFolderThereIsNoLock) {
    InstanceLock lock;
    EXPECT_TRUE(std::holds_alternative<InstanceLock::Unavailable>(
        lock.take(folder_ / "missing", identifier)));
}

TEST_F(InstanceLockTest, TheFolderIsThatOfTheSession) {
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(folder_.path().string()));
    EXPECT_EQ(InstanceLock::defaultFolder(), folder_.path());
}

TEST_F(InstanceLockTest, AFolderThatOthersCanWriteToIsNotUsed) {
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(folder_.path().string()));
    EXPECT_EQ(InstanceLock::defaultFolder(), folder_.path());
    std::filesystem::permissions(
        folder_.path(), std::filesystem::perms::owner_all | std::filesystem::perms::others_write);
    EXPECT_NE(InstanceLock::defaultFolder(), folder_.path());
}

TEST_F(InstanceLockAsRootTest, AFolderThatAnotherGroupCanWriteToIsNotUsed) {
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(folder_.path().string()));
    std::filesystem::permissions(
        folder_.path(), std::filesystem::perms::owner_all | std::filesystem::perms::group_write);
    EXPECT_EQ(InstanceLock::defaultFolder(), folder_.path());
    ASSERT_EQ(chown(folder_.path().c_str(), 0, 65534), 0);
    EXPECT_NE(InstanceLock::defaultFolder(), folder_.path());
}

TEST_F(InstanceLockTest, DoesNotUseAnotherUsersFolder) {
    // This folder belongs to root.
    qputenv("XDG_RUNTIME_DIR", "/");
    const UnprivilegedUser user;
    EXPECT_NE(InstanceLock::defaultFolder(), "/");
}

TEST_F(InstanceLockTest, WithoutASessionTheFolderIsStillTheUsersOwn) {
    qunsetenv("XDG_RUNTIME_DIR");
    const QByteArray configuration = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(folder_.path().string()));
    const auto found = InstanceLock::defaultFolder();
    qputenv("XDG_CONFIG_HOME", configuration);
    ASSERT_TRUE(found);
    struct stat status {};
    ASSERT_EQ(lstat(found->c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_mode & 0022U, 0U);
    EXPECT_NE(found->parent_path(), "/tmp") << "where another user can take the name first";
}

} // namespace orvel::test
