// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/SettingsUserDefaults.h"

#include "core/FileErrors.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"
#include "tests/support/linux/SystemCalls.h"

#include <QLockFile>
#include <QString>
#include <QtGlobal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::Date;
using tavrin::PlatformError;
using Value = tavrin::UserDefaults::Value;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

Date dateOf(double seconds) {
    return Date(tavrin::Seconds(seconds));
}

/// Whether the check holds in another process, which shares only the files.
bool holdsInAnotherProcess(const std::function<bool()>& check) {
    const pid_t child = fork();
    if (child == 0) {
        bool holds = false;
        try {
            holds = check();
        } catch (const std::exception&) {
            // An exception counts as a failed check.
        }
        _exit(holds ? 0 : 1);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777U;
}

template <typename Work>
PlatformError errorOf(Work work) {
    try {
        work();
    } catch (const PlatformError& failure) {
        return failure;
    }
    ADD_FAILURE() << "Nothing was thrown.";
    return {"", 0, ""};
}

class SettingsUserDefaultsTest : public testing::Test {
protected:
    [[nodiscard]] std::string text() const {
        std::ifstream file(file_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    void writeText(const std::string& content) {
        std::filesystem::create_directories(file_.parent_path());
        std::ofstream(file_) << content;
    }

    [[nodiscard]] std::vector<std::string> fileNames() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(file_.parent_path())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    TemporaryDirectory folder_;
    std::filesystem::path file_ = folder_ / "config" / "orvel-agent" / "defaults.conf";
};

class SettingsUserDefaultsAsRootTest : public SettingsUserDefaultsTest {
protected:
    void SetUp() override { skipUnlessRoot(); }
};

} // namespace

TEST_F(SettingsUserDefaultsTest, TheDefaultFileIsInTheUsersConfigurationFolder) {
    EXPECT_EQ(
        SettingsUserDefaults::defaultFile(),
        std::filesystem::path(qEnvironmentVariable("XDG_CONFIG_HOME").toStdString()) /
            "orvel-agent" / "defaults.conf");
}

TEST_F(SettingsUserDefaultsTest, WritesTextThatAPersonCanRead) {
    SettingsUserDefaults defaults(file_);
    defaults.set("collection.mode", "metadataOnly");
    defaults.set("messages.backfill.done", true);
    defaults.set("messages.rowid.watermark", 4711);
    defaults.set("messages.last24h.at", dateOf(1'710'003'942.123));
    defaults.set("other", "12");
    EXPECT_EQ(
        text(),
        "collection.mode=metadataOnly\n"
        "messages.backfill.done=true\n"
        "messages.last24h.at=2024-03-09T17:05:42.123Z\n"
        "messages.rowid.watermark=4711\n"
        "other='12\n");
}

TEST_F(SettingsUserDefaultsTest, ReadsWhatAPersonWrote) {
    writeText("# The user's choice\n"
              "collection.mode=metadataOnly\n"
              "\n"
              "messages.rowid.watermark=4711\n"
              "fraction=1.5\n"
              "list=1,2\n"
              "empty=\n"
              "long=9223372036854775808");
    const SettingsUserDefaults defaults(file_);
    EXPECT_EQ(storedValue<std::string>(defaults, "collection.mode"), "metadataOnly");
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "messages.rowid.watermark"), 4711);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "fraction"), std::nullopt);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "list"), std::nullopt);
    EXPECT_EQ(storedValue<std::string>(defaults, "list"), "1,2");
    EXPECT_EQ(storedValue<std::string>(defaults, "empty"), "");
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "long"), std::nullopt);
}

TEST_F(SettingsUserDefaultsTest, AnotherProcessSeesAWriteOnceItReturns) {
    SettingsUserDefaults defaults(file_);
    defaults.set("integer", largest);
    defaults.set("string", " \xC3\xA9\n,");
    defaults.set("boolean", false);
    defaults.set("date", dateOf(1'710'003'942.123));
    EXPECT_TRUE(holdsInAnotherProcess([this] {
        const SettingsUserDefaults theirs(file_);
        return storedValue<std::int64_t>(theirs, "integer") == largest &&
               storedValue<std::string>(theirs, "string") == " \xC3\xA9\n," &&
               storedValue<bool>(theirs, "boolean") == false &&
               storedValue<tavrin::Date>(theirs, "date") == dateOf(1'710'003'942.123);
    }));
}

TEST_F(SettingsUserDefaultsTest, OnlyTheOwnerMayReadTheFile) {
    SettingsUserDefaults defaults(file_);
    for (const int value : {1, 2}) {
        defaults.set("k", value);
        EXPECT_EQ(modeOf(file_), 0600U);
    }
    EXPECT_EQ(modeOf(file_.parent_path()), 0700U);
    EXPECT_EQ(modeOf(file_.parent_path().parent_path()), 0700U);
}

TEST_F(SettingsUserDefaultsAsRootTest, RefusesFilesOfAnotherUser) {
    const auto messageOf = [](const auto& action) -> std::string {
        try {
            action();
            return "it was accepted";
        } catch (const PlatformError& error) {
            return error.what();
        }
    };
    const auto reason = [](const std::filesystem::path& file) {
        return ": " + file.string() +
               " belongs to another user. Choose a file in a folder of your own.";
    };
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    const std::filesystem::path lock = file_.string() + ".lock";
    std::ofstream(lock) << "";
    ASSERT_EQ(chown(lock.c_str(), 65534, 65534), 0);
    EXPECT_EQ(
        messageOf([&] { defaults.set("k", 2); }),
        "Could not save the agent's settings" + reason(lock));
    std::filesystem::remove(lock);

    ASSERT_EQ(chown(file_.c_str(), 65534, 65534), 0);
    EXPECT_EQ(
        messageOf([&] { SettingsUserDefaults{file_}; }),
        "Could not read the agent's settings" + reason(file_));
    EXPECT_EQ(
        messageOf([&] { defaults.set("k", 2); }),
        "Could not save the agent's settings" + reason(file_));

    std::filesystem::rename(file_, folder_ / "own");
    ASSERT_EQ(chown((folder_ / "own").c_str(), 0, 0), 0);
    std::filesystem::create_symlink(folder_ / "own", file_);
    EXPECT_EQ(SettingsUserDefaults(file_).value("k"), Value(std::int64_t{1}));
    ASSERT_EQ(lchown(file_.c_str(), 65534, 65534), 0);
    EXPECT_EQ(
        messageOf([&] { SettingsUserDefaults{file_}; }),
        "Could not read the agent's settings" + reason(file_));
}

TEST_F(SettingsUserDefaultsTest, ReplacesTheFileAndLeavesNoneBehind) {
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    // A hard link keeps the first file, whose content must not change.
    std::filesystem::create_hard_link(file_, folder_ / "first");
    defaults.set("k", 2);
    std::ifstream first(folder_ / "first");
    const std::string content{std::istreambuf_iterator<char>(first), {}};
    EXPECT_EQ(content, "k=1\n");
    EXPECT_EQ(fileNames(), (std::vector<std::string>{"defaults.conf"}));
}

TEST_F(SettingsUserDefaultsTest, AWriteFlushesTheFileAndItsFolder) {
    SettingsUserDefaults defaults(file_);
    for (const int value : {1, 2}) {
        const FlushCounter flushes;
        defaults.set("k", value);
        EXPECT_EQ(flushes.count(file_), 1U);
        EXPECT_EQ(flushes.count(file_.parent_path()), 1U);
    }
}

TEST_F(SettingsUserDefaultsTest, ProcessesChangeOnlyTheKeysTheySet) {
    SettingsUserDefaults defaults(file_);
    defaults.set("ours", 1);
    defaults.set("theirs", 1);
    EXPECT_TRUE(holdsInAnotherProcess([this] {
        SettingsUserDefaults theirs(file_);
        theirs.set("theirs", 2222);
        theirs.set("new", 3);
        return true;
    }));
    defaults.set("ours", 4);
    EXPECT_EQ(text(), "new=3\nours=4\ntheirs=2222\n");
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "theirs"), 2222);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "new"), 3);
}

TEST_F(SettingsUserDefaultsTest, AFolderThatMayNotBeWrittenFailsTheWrite) {
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    const std::string before = text();
    // Other users may enter the folder, but not change it.
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(file_.parent_path().parent_path(), std::filesystem::perms(0755));
    std::filesystem::permissions(file_.parent_path(), std::filesystem::perms(0555));
    std::filesystem::permissions(file_, std::filesystem::perms(0644));
    {
        const UnprivilegedUser user;
        const PlatformError failure = errorOf([&defaults] { defaults.set("k", 2); });
        EXPECT_EQ(failure.code(), EACCES);
        EXPECT_EQ(
            std::string(failure.what()),
            "Could not save the agent's settings in " + file_.string() +
                ": Permission denied. Change the permissions of the folder, then try again.");
    }
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "k"), 1);
    EXPECT_EQ(text(), before);
    std::filesystem::permissions(file_.parent_path(), std::filesystem::perms(0755));
}

TEST_F(SettingsUserDefaultsTest, TheNextWriteDoesNotRepeatAFailedOne) {
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    {
        const FileSizeLimit limit(1024);
        const PlatformError failure =
            errorOf([&defaults] { defaults.set("k", std::string(4096, 'x')); });
        EXPECT_EQ(failure.code(), EFBIG);
        EXPECT_EQ(text(), "k=1\n");
    }
    defaults.set("later", 2);
    EXPECT_EQ(text(), "k=1\nlater=2\n");
    EXPECT_EQ(fileNames(), (std::vector<std::string>{"defaults.conf"}));
}

TEST_F(SettingsUserDefaultsTest, AFullDiskFailsTheWriteWithItsReason) {
    constexpr std::size_t size = std::size_t{1} << 20;
    const SmallDisk disk(folder_.path(), size);
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    const PlatformError failure =
        errorOf([&defaults] { defaults.set("k", std::string(2 * size, 'x')); });
    EXPECT_EQ(failure.code(), disk.errorWhenFull());
    EXPECT_EQ(
        std::string(failure.what()),
        tavrin::fileError(disk.errorWhenFull(), "Could not save the agent's settings in", file_)
            .what());
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "k"), 1);
    EXPECT_EQ(text(), "k=1\n");
    defaults.set("k", 2);
    EXPECT_EQ(text(), "k=2\n");
}

TEST_F(SettingsUserDefaultsTest, AnUnreadableFileIsNotTreatedAsEmpty) {
    writeText("k=1\n");
    std::filesystem::permissions(file_, std::filesystem::perms::none);
    const UnprivilegedUser user;
    const PlatformError failure = errorOf([this] { const SettingsUserDefaults defaults(file_); });
    EXPECT_EQ(failure.code(), EACCES);
    EXPECT_THAT(failure.what(), testing::HasSubstr("Could not read the agent's settings"));
}

TEST_F(SettingsUserDefaultsTest, ADamagedFileIsNotTreatedAsEmpty) {
    int count = 0;
    for (const std::string_view damaged :
         {std::string_view("k=1\nother"),
          std::string_view("=1\n"),
          std::string_view("k=\\x\n"),
          std::string_view("k=\\"),
          std::string_view("k=\xFF\n"),
          std::string_view("\0\0\0\0", 4)}) {
        const std::filesystem::path file = folder_ / std::to_string(count++);
        std::ofstream(file) << damaged;
        const PlatformError failure =
            errorOf([&file] { const SettingsUserDefaults defaults(file); });
        EXPECT_EQ(failure.code(), EBADMSG) << damaged;
    }
}

TEST_F(SettingsUserDefaultsTest, AFolderInPlaceOfTheFileIsAnError) {
    std::filesystem::create_directories(file_);
    EXPECT_THROW(const SettingsUserDefaults defaults(file_), PlatformError);
}

TEST_F(SettingsUserDefaultsTest, APipeInPlaceOfTheFileFailsWithoutBlocking) {
    std::filesystem::create_directories(file_.parent_path());
    ASSERT_EQ(mkfifo(file_.c_str(), S_IRUSR | S_IWUSR), 0);
    EXPECT_THROW(SettingsUserDefaults{file_}, tavrin::PlatformError);
}

TEST_F(SettingsUserDefaultsTest, AReadDoesNotWaitForAWrite) {
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    // Held like by another writing process, so that this process's write waits.
    QLockFile lock(QString::fromStdString(file_.string() + ".lock"));
    ASSERT_TRUE(lock.lock());
    auto writer = std::async(std::launch::async, [&defaults] { defaults.set("k", 2); });
    auto reader = std::async(
        std::launch::async, [&defaults] { return storedValue<std::int64_t>(defaults, "k"); });
    EXPECT_EQ(reader.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(writer.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_EQ(reader.get(), 1);
    lock.unlock();
    writer.get();
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "k"), 2);
}

TEST_F(SettingsUserDefaultsTest, TheLockOfAKilledProcessDelaysNoWrite) {
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    // As if the process was killed before it wrote its id.
    std::ofstream(file_.string() + ".lock");
    const auto start = std::chrono::steady_clock::now();
    defaults.set("k", 2);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(storedValue<std::int64_t>(SettingsUserDefaults(file_), "k"), 2);
    EXPECT_THAT(fileNames(), testing::ElementsAre("defaults.conf"));
}

TEST_F(SettingsUserDefaultsTest, AWriteWaitsForTheLockOfARunningProcess) {
    SettingsUserDefaults defaults(file_);
    defaults.set("k", 1);
    QLockFile lock(QString::fromStdString(file_.string() + ".lock"));
    ASSERT_TRUE(lock.lock());
    // Old enough to be examined, but not to be taken for abandoned by its age alone.
    std::filesystem::last_write_time(
        file_.string() + ".lock",
        std::filesystem::file_time_type::clock::now() - std::chrono::seconds(10));
    auto writer = std::async(std::launch::async, [&defaults] { defaults.set("k", 2); });
    EXPECT_EQ(writer.wait_for(std::chrono::seconds(1)), std::future_status::timeout);
    lock.unlock();
    writer.get();
    EXPECT_EQ(storedValue<std::int64_t>(SettingsUserDefaults(file_), "k"), 2);
}

TEST_F(SettingsUserDefaultsTest, RemovesTheUnfinishedFilesOfKilledProcesses) {
    using std::chrono::seconds;
    SettingsUserDefaults(file_).set("k", 1);
    const auto killed = std::filesystem::file_time_type::clock::now() - seconds(600);
    const auto leave = [&](const std::string& name, seconds afterLock, mode_t mode = 0600) {
        const auto path = file_.parent_path() / name;
        std::ofstream(path) << "k=2\n";
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        std::filesystem::last_write_time(path, killed + afterLock);
    };
    leave("defaults.conf.lock", seconds(0));
    leave("defaults.conf.aBcdEf", seconds(0));
    leave("defaults.conf.backup", seconds(60));
    const std::vector<std::string> kept{
        "defaults.conf.BackUp",
        "defaults.conf.oldOne",
        "defaults.conf.shareD",
        "defaults.conf.linKed",
        "other.conf.linKed",
        "defaults.conf.old1Ab",
        "defaults.conf.inuse",
        "other.conf.aBcdEf",
        "defaults.conf"};
    leave(kept[0], seconds(61));
    leave(kept[1], seconds(-1));
    leave(kept[2], seconds(0), 0640);
    leave(kept[3], seconds(0));
    std::filesystem::create_hard_link(file_.parent_path() / kept[3], file_.parent_path() / kept[4]);
    for (const int other : {5, 6, 7}) {
        leave(kept.at(other), seconds(0));
    }
    SettingsUserDefaults(file_).set("k", 2);
    EXPECT_THAT(fileNames(), testing::UnorderedElementsAreArray(kept));
}

TEST_F(SettingsUserDefaultsTest, RemovesNoFileOfTheUserIfNoProcessWasKilled) {
    SettingsUserDefaults(file_).set("k", 1);
    const std::string copy = file_.string() + ".BackUp";
    std::filesystem::copy_file(file_, copy);
    ASSERT_EQ(chmod(copy.c_str(), 0600), 0);
    SettingsUserDefaults(file_).set("k", 2);
    EXPECT_TRUE(std::filesystem::exists(copy));
}

TEST_F(SettingsUserDefaultsTest, KeepsTheWritesOfSeveralThreads) {
    SettingsUserDefaults defaults(file_);
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&defaults, index] {
            const std::string key = "thread" + std::to_string(index);
            for (int value = 1; value <= 5; ++value) {
                defaults.set(key, value);
                EXPECT_EQ(storedValue<std::int64_t>(defaults, key), value);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(text(), "thread0=5\nthread1=5\nthread2=5\nthread3=5\n");
}

} // namespace orvel::test
