// SPDX-License-Identifier: Apache-2.0
#include "core/messages/ChatDatabaseSnapshot.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/messages/FileCopier.h"
#include "core/messages/SQLiteDatabase.h"
#include "core/messages/SnapshotDirectory.h"
#include "tests/platform/RealFileCopier.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"
#include "tests/support/WritingProcess.h"
#include "tests/support/messages/WritableDatabase.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tavrin {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using orvel::test::DescriptorLimit;
using orvel::test::SmallDisk;
using orvel::test::TemporaryDirectory;
using orvel::test::UnprivilegedUser;
using orvel::test::WritableDatabase;
using orvel::test::WritingProcess;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Error = ChatDatabaseSnapshot::Error;

void ignorePause(std::chrono::milliseconds, const CancellationToken&) {}

std::vector<std::string> namesIn(const fs::path& directory) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Whether the database is intact and has all messages from row id 1 to `last`.
bool holdsMessages(SQLiteDatabase& database, std::int64_t last) {
    try {
        std::optional<std::string> verdict;
        database.query("PRAGMA integrity_check", {}, [&](const SQLiteDatabase::Row& row) {
            verdict = verdict.value_or(row.string(0).value_or(""));
        });
        std::int64_t count = -1;
        const std::vector bindings{SQLiteDatabase::Binding::integer(last)};
        database.query(
            "SELECT count(*) FROM message WHERE ROWID BETWEEN 1 AND ?",
            bindings,
            [&](const SQLiteDatabase::Row& row) { count = row.integer(0); });
        return verdict == "ok" && count == last;
    } catch (const SQLiteError&) {
        return false;
    }
}

bool holdsMessages(const ChatDatabaseSnapshot& snapshot, std::int64_t last) {
    return holdsMessages(*snapshot.open(), last);
}

/// Copies with the real copier and calls the test after each file.
class InterruptedCopier final : public FileCopier {
public:
    /// Called after each copy of a file with this name.
    std::map<std::string, std::function<void()>> afterCopying;
    /// The names of files that cannot be copied.
    std::vector<std::string> uncopyable;
    /// The names of the copied files, in order.
    std::vector<std::string> copied;

    void copy(
        const fs::path& source,
        const fs::path& destination,
        const CancellationToken& cancellation) override {
        const std::string name = source.filename();
        if (std::find(uncopyable.begin(), uncopyable.end(), name) != uncopyable.end()) {
            throw PlatformError::fromErrno(EIO, "Could not read " + name);
        }
        copier_->copy(source, destination, cancellation);
        copied.push_back(name);
        // Copy the function, because it may replace itself.
        if (const std::function<void()> action = afterCopying[name]) {
            action();
        }
    }

private:
    std::unique_ptr<FileCopier> copier_ = orvel::test::makeRealFileCopier();
};

/// Copies main file, log and index in this order, without checking for changes in between.
void copyInPlainOrder(FileCopier& copier, const fs::path& source, const fs::path& destination) {
    for (const std::string suffix : {"", "-wal", "-shm"}) {
        if (fs::exists(source.string() + suffix)) {
            copier.copy(source.string() + suffix, destination.string() + suffix, {});
        }
    }
}

class ChatDatabaseSnapshotTest : public testing::Test {
protected:
    ChatDatabaseSnapshotTest() { setenv("TMPDIR", temporary_.path().c_str(), 1); }

    ~ChatDatabaseSnapshotTest() override {
        if (formerTemporary_) {
            setenv("TMPDIR", formerTemporary_->c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }

    /// The case of the error when making a snapshot fails with it, or no value.
    template <typename Case>
    std::optional<Case> failure(const std::string& path) {
        try {
            const ChatDatabaseSnapshot snapshot(copier_, path, {}, ignorePause);
        } catch (const Error& error) {
            what_ = error.what();
            if (const auto* failure = std::get_if<Case>(&error.error())) {
                return *failure;
            }
        }
        return std::nullopt;
    }

    /// A database without a log, last changed an hour ago.
    void makeQuietDatabase(std::int64_t messages) {
        { WritableDatabase(source_).addMessages(messages); }
        makeOld();
    }

    void makeOld() const { fs::last_write_time(source_, fs::file_time_type::clock::now() - 1h); }

    /// Calls `act` right after the source's time of change was set to now. Repeats that if it took
    /// too long.
    void whileFresh(const std::function<void()>& act) const {
        fs::file_time_type changed;
        do {
            changed = fs::file_time_type::clock::now();
            fs::last_write_time(source_, changed);
            act();
        } while (fs::file_time_type::clock::now() - changed > 40ms);
    }

    /// Creates a database with `messages` messages, half of them in the log.
    std::unique_ptr<WritableDatabase> makeLiveDatabase(std::int64_t messages) {
        auto writer = std::make_unique<WritableDatabase>(source_);
        writer->addMessages(messages / 2);
        writer->execute("PRAGMA wal_checkpoint(TRUNCATE)");
        writer->addMessages(messages - messages / 2);
        return writer;
    }

    [[nodiscard]] std::ptrdiff_t copiesOfMainFile() const {
        return std::count(copier_.copied.begin(), copier_.copied.end(), "chat.db");
    }

    TemporaryDirectory folder_;
    TemporaryDirectory temporary_;
    fs::path source_ = folder_ / "chat.db";
    InterruptedCopier copier_;
    std::string what_;

private:
    std::optional<std::string> formerTemporary_ =
        std::getenv("TMPDIR") != nullptr ? std::optional<std::string>(std::getenv("TMPDIR"))
                                         : std::nullopt;
};

TEST_F(ChatDatabaseSnapshotTest, HoldsTheDatabaseAndItsCompanions) {
    const auto writer = makeLiveDatabase(100);

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_THAT(copier_.copied, testing::ElementsAre("chat.db", "chat.db-wal", "chat.db-shm"));
    EXPECT_THAT(
        namesIn(snapshot.directory()),
        testing::ElementsAre("chat.db", "chat.db-shm", "chat.db-wal"));
    EXPECT_EQ(snapshot.databasePath(), snapshot.directory() / "chat.db");
    EXPECT_EQ(snapshot.logCopyFailure(), std::nullopt);
    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

TEST_F(ChatDatabaseSnapshotTest, HoldsADatabaseWithoutCompanions) {
    makeQuietDatabase(100);

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_THAT(namesIn(snapshot.directory()), testing::ElementsAre("chat.db"));
    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

TEST_F(ChatDatabaseSnapshotTest, FindsTheLogBesideTheFileThatALinkLeadsTo) {
    const auto writer = makeLiveDatabase(100);
    const fs::path link = temporary_ / "linked.db";
    fs::create_symlink(source_, link);

    const ChatDatabaseSnapshot snapshot(copier_, link);

    EXPECT_EQ(snapshot.databasePath(), snapshot.directory() / "linked.db");
    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

TEST_F(ChatDatabaseSnapshotTest, OpensANewConnectionEachTime) {
    makeQuietDatabase(1);
    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_NE(snapshot.open(), snapshot.open());
}

TEST_F(ChatDatabaseSnapshotTest, HasAUniqueNameInTheTemporaryDirectory) {
    makeQuietDatabase(1);

    const ChatDatabaseSnapshot first(copier_, source_);
    const ChatDatabaseSnapshot second(copier_, source_);

    EXPECT_EQ(first.directory().parent_path(), temporary_.path());
    EXPECT_THAT(
        first.directory().filename(),
        testing::MatchesRegex("tavrin-chatdb-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    EXPECT_NE(first.directory(), second.directory());
}

TEST_F(ChatDatabaseSnapshotTest, IsForItsOwnerOnly) {
    makeQuietDatabase(1);
    fs::permissions(source_, fs::perms::all);

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_EQ(fs::status(snapshot.directory()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(
        fs::status(snapshot.databasePath()).permissions(),
        fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ChatDatabaseSnapshotTest, IsRemovedWhenReleased) {
    makeQuietDatabase(1);

    { const ChatDatabaseSnapshot snapshot(copier_, source_); }

    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, CanBeRemovedByAnotherThreadWhileItIsLive) {
    makeQuietDatabase(1);
    const auto live = std::make_shared<LiveSnapshots>();
    std::vector<std::string> duringTheCopy;
    copier_.afterCopying["chat.db"] = [&] {
        duringTheCopy = namesIn(temporary_.path());
        std::thread(&LiveSnapshots::removeDirectories, live).join();
    };

    {
        const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause, live);
        EXPECT_EQ(duringTheCopy.size(), 1U);
        EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
    }

    // A directory is not listed any more once its snapshot is released.
    fs::create_directory(temporary_ / duringTheCopy.at(0));
    live->removeDirectories();
    EXPECT_EQ(namesIn(temporary_.path()), duringTheCopy);
}

TEST_F(ChatDatabaseSnapshotTest, CreatesAMissingTemporaryDirectory) {
    makeQuietDatabase(1);
    setenv("TMPDIR", (temporary_ / "some/where").c_str(), 1);

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_EQ(snapshot.directory().parent_path(), temporary_ / "some/where");
}

TEST_F(ChatDatabaseSnapshotTest, OpensACopyWhoseNameHasAMeaningInAURI) {
    for (const char* name : {"chat#x.db", "chat%41.db", "chat.db?mode=rwc", "chat%"}) {
        source_ = folder_ / name;
        makeQuietDatabase(10);
        setenv("TMPDIR", (temporary_ / "t?x#%41").c_str(), 1);
        const ChatDatabaseSnapshot snapshot(copier_, source_);
        EXPECT_TRUE(holdsMessages(snapshot, 10)) << name;

        setenv("TMPDIR", ("/" + temporary_.path().string()).c_str(), 1);
        const ChatDatabaseSnapshot afterTwoSlashes(copier_, source_);
        EXPECT_TRUE(holdsMessages(afterTwoSlashes, 10)) << name;
    }
}

TEST_F(ChatDatabaseSnapshotTest, ACopyThatCannotBeOpenedIsReportedWithItsPlainPath) {
    source_ = folder_ / "chat #%.db";
    makeQuietDatabase(10);
    const ChatDatabaseSnapshot snapshot(copier_, source_);
    fs::remove(snapshot.databasePath());
    EXPECT_THAT(
        [&] { static_cast<void>(snapshot.open()); },
        testing::ThrowsMessage<SQLiteError>(
            "sqlite open failed (" + snapshot.databasePath() + "): unable to open database file"));
}

TEST_F(ChatDatabaseSnapshotTest, AStatementOnTheCopyDoesNotTakeForever) {
    makeQuietDatabase(10);
    const ChatDatabaseSnapshot snapshot(copier_, source_);
    const auto database = snapshot.open();
    EXPECT_THROW(
        database->query(
            "WITH RECURSIVE endless (n) AS (SELECT 1 UNION ALL SELECT n FROM endless) "
            "SELECT count(*) FROM endless",
            {},
            [](const SQLiteDatabase::Row&) {}),
        SQLiteError);
}

TEST_F(ChatDatabaseSnapshotTest, AMissingTemporaryDirectoryIsForThisUserOnly) {
    setenv("TMPDIR", (temporary_ / "some/where").c_str(), 1);
    const mode_t former = umask(0);
    const SnapshotDirectory directory;
    umask(former);
    for (const char* const name : {"some", "some/where"}) {
        EXPECT_EQ(fs::status(temporary_ / name).permissions(), fs::perms::owner_all) << name;
    }
}

TEST_F(ChatDatabaseSnapshotTest, UsesNoFolderWhereOthersCouldTakeTheCopyAway) {
    const fs::path parent = temporary_ / "shared/own";
    fs::create_directories(parent);
    setenv("TMPDIR", parent.c_str(), 1);
    for (const fs::path& shared : {parent, parent.parent_path()}) {
        fs::permissions(shared, fs::perms::all);
        try {
            const SnapshotDirectory directory;
            ADD_FAILURE() << shared;
        } catch (const PlatformError& error) {
            EXPECT_THAT(error.what(), HasSubstr("Set TMPDIR to a folder of your own"));
        }
        EXPECT_THAT(namesIn(parent), IsEmpty());
        fs::permissions(shared, fs::perms::all | fs::perms::sticky_bit);
        EXPECT_NO_THROW(SnapshotDirectory()) << shared;
        fs::permissions(shared, fs::perms::owner_all);
    }
}

TEST_F(ChatDatabaseSnapshotTest, ReportsThatItsDirectoryCannotBeCreated) {
    makeQuietDatabase(1);
    setenv("TMPDIR", (source_ / "below-a-file").c_str(), 1);

    EXPECT_THROW(ChatDatabaseSnapshot(copier_, source_), PlatformError);
}

TEST_F(ChatDatabaseSnapshotTest, ReportsThatItsDirectoryCannotBeLocked) {
    makeQuietDatabase(1);

    {
        const DescriptorLimit none(0);
        EXPECT_THROW(SnapshotDirectory(), PlatformError);
    }

    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, UsesTheSystemsTemporaryDirectoryIfTheUserHasNone) {
    setenv("TMPDIR", "", 1);
    EXPECT_EQ(SnapshotDirectory::parent(), "/tmp");
    unsetenv("TMPDIR");
    EXPECT_EQ(SnapshotDirectory::parent(), "/tmp");
}

TEST_F(ChatDatabaseSnapshotTest, ReadsTheUsersMessagesByDefault) {
    const std::string home = std::getenv("HOME");

    EXPECT_EQ(ChatDatabaseSnapshot::defaultSourcePath(), home + "/Library/Messages/chat.db");
}

TEST_F(ChatDatabaseSnapshotTest, FindsTheUsersMessagesWithoutAHomeInTheEnvironment) {
    const std::string home = std::getenv("HOME");
    const std::string expected =
        std::string(getpwuid(geteuid())->pw_dir) + "/Library/Messages/chat.db";

    unsetenv("HOME");
    EXPECT_EQ(ChatDatabaseSnapshot::defaultSourcePath(), expected);
    setenv("HOME", "", 1);
    EXPECT_EQ(ChatDatabaseSnapshot::defaultSourcePath(), expected);

    setenv("HOME", home.c_str(), 1);
}

TEST_F(ChatDatabaseSnapshotTest, ReportsAMissingSource) {
    EXPECT_EQ(failure<Error::SourceMissing>(source_).value().path, source_);
    EXPECT_EQ(what_, "Messages database not found at " + source_.string());
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, AsksForAccessWhenTheFolderMustNotBeRead) {
    makeQuietDatabase(1);
    fs::permissions(folder_.path(), fs::perms::none);

    {
        const UnprivilegedUser unprivileged;
        EXPECT_EQ(failure<Error::PermissionDenied>(source_).value().path, source_);
    }

    fs::permissions(folder_.path(), fs::perms::owner_all);
    EXPECT_EQ(what_, "Full Disk Access is required to read " + source_.string());
}

TEST_F(ChatDatabaseSnapshotTest, AsksForAccessWhenTheSourceMustNotBeRead) {
    makeQuietDatabase(1);
    fs::permissions(source_, fs::perms::none);
    fs::permissions(folder_.path(), fs::perms::all);
    const UnprivilegedUser unprivileged;

    EXPECT_TRUE(failure<Error::PermissionDenied>(source_));
}

TEST_F(ChatDatabaseSnapshotTest, AsksForAccessToAMissingSourceWithoutAFolder) {
    EXPECT_TRUE(failure<Error::PermissionDenied>("no-such-chat.db"));
}

TEST_F(ChatDatabaseSnapshotTest, ReportsWhyTheSourceCannotBeCopied) {
    makeQuietDatabase(1);
    copier_.uncopyable = {"chat.db"};

    const auto failed = failure<Error::CopyFailed>(source_);

    EXPECT_EQ(failed.value().path, source_);
    EXPECT_EQ(
        what_,
        "Could not copy " + source_.string() + ": Could not read chat.db: Input/output error");
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, LeavesNothingOnAFullDisk) {
    makeQuietDatabase(5000);
    const SmallDisk disk(temporary_.path(), std::size_t{1} << 20);
    ASSERT_GT(fs::file_size(source_), std::size_t{1} << 20);

    const auto failed = failure<Error::CopyFailed>(source_);

    EXPECT_THAT(
        failed.value().reason,
        testing::HasSubstr(": " + std::generic_category().message(disk.errorWhenFull()) + ". "));
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, OmitsALogThatCannotBeCopied) {
    const auto writer = makeLiveDatabase(100);
    makeOld();
    copier_.uncopyable = {"chat.db-wal", "chat.db-shm"};

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_THAT(namesIn(snapshot.directory()), testing::ElementsAre("chat.db"));
    EXPECT_EQ(snapshot.logCopyFailure(), "Could not read chat.db-wal: Input/output error");
    EXPECT_TRUE(holdsMessages(snapshot, 50));
}

TEST_F(ChatDatabaseSnapshotTest, RefusesAHalfCheckpointedFileWhoseLogCannotBeCopied) {
    WritableDatabase writer(source_);
    writer.execute("CREATE TABLE entry (id INTEGER PRIMARY KEY, text TEXT)");
    writer.execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000)"
                   " INSERT INTO entry SELECT i, 'short' FROM n");
    writer.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    // Longer rows move to new pages, whose parent page changes again after the reader started. The
    // checkpoint may copy the pages to the main file, but not their parent.
    writer.execute(
        "UPDATE entry SET text = printf('%.*c', 3000, 'x') WHERE id BETWEEN 300 AND 330");
    WritableDatabase reader(source_);
    reader.execute("BEGIN; SELECT COUNT(*) FROM entry");
    writer.execute("WITH RECURSIVE n(i) AS (SELECT 1001 UNION ALL SELECT i + 1 FROM n"
                   " WHERE i < 1100) INSERT INTO entry SELECT i, printf('%.*c', 3000, 'y') FROM n");
    writer.execute("PRAGMA wal_checkpoint(PASSIVE)");
    makeOld();
    copier_.uncopyable = {"chat.db-wal", "chat.db-shm"};

    EXPECT_TRUE(failure<Error::CopyFailed>(source_));

    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, ADamagedPageWithoutTheLogIsReportedAtOnceWithSQLitesFinding) {
    const auto writer = makeLiveDatabase(2000);
    const auto garbage = static_cast<std::streamoff>(fs::file_size(source_)) - 4096;
    std::fstream(source_, std::ios::in | std::ios::out | std::ios::binary).seekp(garbage)
        << std::string(4096, '\x7F');
    makeOld();
    copier_.uncopyable = {"chat.db-wal"};

    const auto failed = failure<Error::CopyFailed>(source_);

    EXPECT_THAT(failed.value().reason, testing::HasSubstr("Could not read chat.db-wal"));
    EXPECT_THAT(failed.value().reason, testing::HasSubstr("btreeInitPage() returns error code 11"));
    EXPECT_THAT(failed.value().reason, testing::Not(testing::HasSubstr("kept changing")));
    EXPECT_EQ(copiesOfMainFile(), 1);
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, TheCheckOfACopyWithoutItsLogCanBeCancelled) {
    const auto writer = makeLiveDatabase(100);
    makeOld();
    CancellationSource cancellation;
    copier_.uncopyable = {"chat.db-wal"};
    // The last file before the check.
    copier_.afterCopying["chat.db-shm"] = [&] {
        cancellation.cancel();
    };

    EXPECT_THROW(
        ChatDatabaseSnapshot(copier_, source_, cancellation.token(), ignorePause), TaskCancelled);
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

/// A database with a rollback journal instead of a write-ahead log.
class ChatDatabaseSnapshotJournalTest : public ChatDatabaseSnapshotTest {
protected:
    ChatDatabaseSnapshotJournalTest() {
        writer_.execute("PRAGMA journal_mode = DELETE");
        writer_.addMessages(2000);
    }

    WritableDatabase writer_{source_};
    fs::path journal_ = source_.string() + "-journal";
};

TEST_F(ChatDatabaseSnapshotJournalTest, AnUnfinishedChangeIsReported) {
    // The small cache makes SQLite write pages to the main file before the commit.
    writer_.execute("PRAGMA cache_size = 2");
    writer_.execute("BEGIN");
    writer_.execute("DELETE FROM message WHERE ROWID % 2 = 0");
    ASSERT_GT(fs::file_size(journal_), 0U);
    makeOld();

    const auto failed = failure<Error::CopyFailed>(source_);

    EXPECT_THAT(failed.value().reason, testing::HasSubstr("an unfinished change"));
    EXPECT_THAT(failed.value().reason, testing::HasSubstr("chat.db-journal"));
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotJournalTest, AnUnfinishedChangeThatIsSoonFinishedIsWaitedFor) {
    writer_.execute("PRAGMA cache_size = 2");
    writer_.execute("BEGIN");
    writer_.execute("DELETE FROM message WHERE ROWID % 2 = 0");
    makeOld();

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, [this](auto, const auto&) {
        if (fs::exists(journal_)) {
            writer_.execute("ROLLBACK");
        }
        makeOld();
    });

    EXPECT_TRUE(holdsMessages(snapshot, 2000));
}

TEST_F(ChatDatabaseSnapshotJournalTest, AChangeThatHasNotReachedTheMainFileDoesNoHarm) {
    writer_.execute("BEGIN");
    writer_.execute("DELETE FROM message WHERE ROWID % 2 = 0");
    ASSERT_TRUE(fs::exists(journal_));
    makeOld();

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_TRUE(holdsMessages(snapshot, 2000));
}

TEST_F(ChatDatabaseSnapshotJournalTest, AJournalOfAFinishedChangeDoesNoHarm) {
    writer_.execute("PRAGMA journal_mode = PERSIST");
    writer_.addMessages(1);
    ASSERT_GT(fs::file_size(journal_), 0U);
    makeOld();

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_TRUE(holdsMessages(snapshot, 2001));
}

TEST_F(ChatDatabaseSnapshotTest, APipeInsteadOfTheSourceIsReported) {
    ASSERT_EQ(mkfifo(source_.c_str(), 0600), 0);
    makeOld();

    EXPECT_THAT(failure<Error::CopyFailed>(source_).value().reason, StartsWith("Could not read "));
}

TEST_F(ChatDatabaseSnapshotTest, APipeInsteadOfTheLogIsNotRead) {
    makeQuietDatabase(100);
    ASSERT_EQ(mkfifo((source_.string() + "-wal").c_str(), 0600), 0);

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

TEST_F(ChatDatabaseSnapshotTest, SurvivesALogIndexThatIsAheadOfTheLog) {
    const auto writer = makeLiveDatabase(100);
    copier_.afterCopying["chat.db-wal"] = [&] {
        writer->addMessages(1000);
    };

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_EQ(copier_.copied.size(), 3U);
    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

TEST_F(ChatDatabaseSnapshotTest, SurvivesACheckpointThatDoesNotRestartTheLog) {
    const auto writer = makeLiveDatabase(1000);
    copier_.afterCopying["chat.db"] = [&] {
        writer->execute("PRAGMA wal_checkpoint(FULL)");
    };

    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_EQ(copier_.copied.size(), 3U);
    EXPECT_TRUE(holdsMessages(snapshot, 1000));
}

/// The parameter is a checkpoint mode that restarts the log.
class ChatDatabaseSnapshotRestartTest : public ChatDatabaseSnapshotTest,
                                        public testing::WithParamInterface<const char*> {
protected:
    /// Restarts the log once, right after the first copy of the file with this name.
    void restartLogAfterCopying(const std::string& name) {
        copier_.afterCopying[name] = [this] {
            copier_.afterCopying.clear();
            writer_->execute(std::string("PRAGMA wal_checkpoint(") + GetParam() + ")");
            writer_->addMessages(1);
        };
    }

    std::unique_ptr<WritableDatabase> writer_ = makeLiveDatabase(1000);
};

INSTANTIATE_TEST_SUITE_P(
    ,
    ChatDatabaseSnapshotRestartTest,
    testing::Values("RESTART", "TRUNCATE"),
    [](const auto& mode) { return std::string(mode.param); });

TEST_P(ChatDatabaseSnapshotRestartTest, ThePlainOrderLosesMessages) {
    restartLogAfterCopying("chat.db");

    copyInPlainOrder(copier_, source_, folder_ / "plain.db");

    SQLiteDatabase plain(folder_ / "plain.db");
    EXPECT_FALSE(holdsMessages(plain, 1000));
}

TEST_P(ChatDatabaseSnapshotRestartTest, CopiesAgainAfterARestartBetweenMainFileAndLog) {
    restartLogAfterCopying("chat.db");

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_EQ(copier_.copied.size(), 6U);
    EXPECT_TRUE(holdsMessages(snapshot, 1001));
}

TEST_P(ChatDatabaseSnapshotRestartTest, CopiesAgainAfterARestartThatTheCopyOfTheLogMayHaveSeen) {
    restartLogAfterCopying("chat.db-wal");

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_EQ(copier_.copied.size(), 6U);
    EXPECT_TRUE(holdsMessages(snapshot, 1001));
}

TEST_F(ChatDatabaseSnapshotTest, CopiesAgainWhenALogAppears) {
    makeQuietDatabase(100);
    std::unique_ptr<WritableDatabase> writer;
    copier_.afterCopying["chat.db"] = [&] {
        copier_.afterCopying.clear();
        writer = std::make_unique<WritableDatabase>(source_);
        writer->addMessages(1);
    };

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_THAT(
        copier_.copied,
        testing::ElementsAre(
            "chat.db", "chat.db-wal", "chat.db-shm", "chat.db", "chat.db-wal", "chat.db-shm"));
    EXPECT_TRUE(holdsMessages(snapshot, 101));
}

TEST_F(ChatDatabaseSnapshotTest, CopiesAgainWhenTheLogVanishes) {
    auto writer = makeLiveDatabase(100);
    copier_.afterCopying["chat.db"] = [&] {
        copier_.afterCopying.clear();
        writer.reset();
    };

    const ChatDatabaseSnapshot snapshot(
        copier_, source_, {}, [this](auto, const auto&) { makeOld(); });

    EXPECT_THAT(copier_.copied, testing::ElementsAre("chat.db", "chat.db"));
    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

/// Changes a database without a log right after its first copy.
class ChatDatabaseSnapshotWithoutLogTest : public ChatDatabaseSnapshotTest {
protected:
    ChatDatabaseSnapshotWithoutLogTest() { makeQuietDatabase(100); }

    int copiesMadeWhen(const std::function<void()>& change) {
        copier_.afterCopying["chat.db"] = [&] {
            copier_.afterCopying.clear();
            change();
        };
        const ChatDatabaseSnapshot snapshot(
            copier_, source_, {}, [this](auto, const auto&) { makeOld(); });
        return static_cast<int>(copier_.copied.size());
    }
};

TEST_F(ChatDatabaseSnapshotWithoutLogTest, IsCopiedOnceWhenNothingChanges) {
    EXPECT_EQ(copiesMadeWhen([] {}), 1);
}

TEST_F(ChatDatabaseSnapshotWithoutLogTest, IsCopiedAlthoughItsTimeIsInTheFuture) {
    fs::last_write_time(source_, fs::file_time_type::clock::now() + 1h);

    const ChatDatabaseSnapshot snapshot(copier_, source_, {}, ignorePause);

    EXPECT_TRUE(holdsMessages(snapshot, 100));
}

TEST_F(ChatDatabaseSnapshotWithoutLogTest, IsCopiedAgainWhenItsTimeChanges) {
    EXPECT_EQ(
        copiesMadeWhen([this] { fs::last_write_time(source_, fs::file_time_type::clock::now()); }),
        2);
}

TEST_F(ChatDatabaseSnapshotWithoutLogTest, IsCopiedAgainWhenItsSizeChanges) {
    const fs::file_time_type time = fs::last_write_time(source_);
    EXPECT_EQ(
        copiesMadeWhen([&] {
            fs::resize_file(source_, fs::file_size(source_) + 4096);
            fs::last_write_time(source_, time);
        }),
        2);
}

TEST_F(ChatDatabaseSnapshotWithoutLogTest, IsCopiedAgainWhenAnotherFileReplacesIt) {
    const fs::file_time_type time = fs::last_write_time(source_);
    EXPECT_EQ(
        copiesMadeWhen([&] {
            fs::copy_file(source_, folder_ / "other.db");
            fs::last_write_time(folder_ / "other.db", time);
            fs::rename(folder_ / "other.db", source_);
        }),
        2);
}

TEST_F(ChatDatabaseSnapshotWithoutLogTest, WaitsWhileAnotherChangeCouldKeepTheSameTime) {
    std::vector<std::ptrdiff_t> copiesBeforePause;
    whileFresh([&] {
        copier_.copied.clear();
        copiesBeforePause.clear();
        const ChatDatabaseSnapshot snapshot(copier_, source_, {}, [&](auto, const auto&) {
            copiesBeforePause.push_back(copiesOfMainFile());
            makeOld();
        });
    });

    EXPECT_THAT(copiesBeforePause, testing::ElementsAre(0));
    EXPECT_EQ(copiesOfMainFile(), 1);
}

TEST_F(ChatDatabaseSnapshotWithoutLogTest, IsNotLookedAtAgainWhenCancelledInAPause) {
    int pauses = 0;
    whileFresh([&] {
        pauses = 0;
        CancellationSource cancellation;
        EXPECT_THROW(
            ChatDatabaseSnapshot(
                copier_,
                source_,
                cancellation.token(),
                [&](auto, const auto&) {
                    ++pauses;
                    cancellation.cancel();
                    fs::last_write_time(source_, fs::file_time_type::clock::now());
                }),
            TaskCancelled);
    });

    EXPECT_EQ(pauses, 1);
}

TEST_F(ChatDatabaseSnapshotTest, CopiesAgainWhenACheckpointChangesAMainFileCopiedWithoutItsLog) {
    const auto writer = makeLiveDatabase(1000);
    makeOld();
    copier_.uncopyable = {"chat.db-wal"};
    copier_.afterCopying["chat.db"] = [&] {
        copier_.afterCopying.clear();
        // This keeps the log, which still contains the copied pages.
        writer->execute("PRAGMA wal_checkpoint(FULL)");
    };

    const ChatDatabaseSnapshot snapshot(
        copier_, source_, {}, [this](auto, const auto&) { makeOld(); });

    EXPECT_EQ(copiesOfMainFile(), 2);
    EXPECT_TRUE(holdsMessages(snapshot, 1000));
}

TEST_F(ChatDatabaseSnapshotTest, CopiesAFreshlyChangedMainFileAgainWhenItsLogCannotBeCopied) {
    const auto writer = makeLiveDatabase(10);
    copier_.uncopyable = {"chat.db-wal"};
    whileFresh([this] {
        copier_.copied.clear();
        const ChatDatabaseSnapshot snapshot(
            copier_, source_, {}, [this](auto, const auto&) { makeOld(); });
    });

    EXPECT_EQ(copiesOfMainFile(), 2);
}

TEST_F(ChatDatabaseSnapshotTest, GivesUpOnASourceThatKeepsChanging) {
    const auto writer = makeLiveDatabase(10);
    copier_.afterCopying["chat.db"] = [&] {
        writer->execute("PRAGMA wal_checkpoint(TRUNCATE)");
        writer->addMessages(1);
    };
    std::vector<std::chrono::milliseconds> pauses;

    try {
        const ChatDatabaseSnapshot snapshot(
            copier_, source_, {}, [&](std::chrono::milliseconds pause, const auto&) {
                pauses.push_back(pause);
            });
        FAIL() << "it took a torn copy";
    } catch (const Error& error) {
        ASSERT_TRUE(std::holds_alternative<Error::CopyFailed>(error.error()));
        EXPECT_STREQ(
            error.what(),
            ("Could not copy " + source_.string() + ": it kept changing while it was being copied")
                .c_str());
    }

    EXPECT_EQ(copiesOfMainFile(), 10);
    EXPECT_THAT(
        pauses, testing::ElementsAre(10ms, 20ms, 40ms, 80ms, 160ms, 320ms, 500ms, 500ms, 500ms));
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, LeavesNothingWhenCancelledBetweenTwoFiles) {
    const auto writer = makeLiveDatabase(10);
    CancellationSource cancellation;
    copier_.afterCopying["chat.db"] = [&] {
        cancellation.cancel();
    };

    EXPECT_THROW(
        ChatDatabaseSnapshot(copier_, source_, cancellation.token(), ignorePause), TaskCancelled);
    EXPECT_THAT(copier_.copied, testing::ElementsAre("chat.db"));
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotTest, LeavesNothingWhenCancelledInAPause) {
    const auto writer = makeLiveDatabase(10);
    copier_.afterCopying["chat.db"] = [&] {
        writer->execute("PRAGMA wal_checkpoint(TRUNCATE)");
        writer->addMessages(1);
    };
    CancellationSource cancellation;

    EXPECT_THROW(
        ChatDatabaseSnapshot(
            copier_,
            source_,
            cancellation.token(),
            [&](auto, const auto&) { cancellation.cancel(); }),
        TaskCancelled);
    EXPECT_EQ(copiesOfMainFile(), 1);
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST(ChatDatabaseSnapshotWaitTest, EndsWhenCancelled) {
    CancellationSource cancellation;
    std::thread waiting([&] { ChatDatabaseSnapshot::wait(24h, cancellation.token()); });

    cancellation.cancel();

    waiting.join();
}

class ChatDatabaseSnapshotSweepTest : public ChatDatabaseSnapshotTest {
protected:
    /// Creates a directory like that of a crashed process: no process holds its lock.
    fs::path leaveBehind(const std::string& name) {
        const fs::path directory = temporary_ / name;
        fs::create_directory(directory);
        std::ofstream(directory / "chat.db") << "messages";
        return directory;
    }

    static constexpr auto name_ = "tavrin-chatdb-6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F14";
};

TEST_F(ChatDatabaseSnapshotSweepTest, RemovesTheCopiesOfAKilledProcess) {
    makeQuietDatabase(10);
    std::array<int, 2> ready{};
    ASSERT_EQ(pipe(ready.data()), 0);
    const pid_t process = fork();
    if (process == 0) {
        const ChatDatabaseSnapshot snapshot(copier_, source_);
        close(ready[1]);
        for (;;) {
            pause();
        }
    }
    close(ready[1]);
    char none = 0;
    ASSERT_EQ(read(ready[0], &none, 1), 0) << "the end of the pipe says that the snapshot is made";
    close(ready[0]);
    ASSERT_EQ(namesIn(temporary_.path()).size(), 1U);
    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U) << "it is alive";

    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 1U);
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotSweepTest, KeepsSnapshotsInUse) {
    makeQuietDatabase(10);
    const ChatDatabaseSnapshot snapshot(copier_, source_);

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
    EXPECT_TRUE(holdsMessages(snapshot, 10));
}

TEST_F(ChatDatabaseSnapshotSweepTest, LocksNoDirectoryThatIsNoLongerInItsPlace) {
    const fs::path directory = leaveBehind("some");
    const auto opened = [&] {
        return FileDescriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY));
    };
    EXPECT_TRUE(SnapshotDirectory::tryLock(opened(), directory).isOpen());

    FileDescriptor former = opened();
    fs::rename(directory, temporary_ / "moved");
    EXPECT_FALSE(SnapshotDirectory::tryLock(std::move(former), directory).isOpen());

    former = FileDescriptor(open((temporary_ / "moved").c_str(), O_RDONLY | O_DIRECTORY));
    leaveBehind("some");
    EXPECT_FALSE(SnapshotDirectory::tryLock(std::move(former), directory).isOpen());
}

TEST_F(ChatDatabaseSnapshotSweepTest, RemovesThoseOfAnotherFolder) {
    const TemporaryDirectory other;
    const fs::path directory = other / name_;
    fs::create_directory(directory);

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(other.path()), 1U);
    EXPECT_FALSE(fs::exists(directory));
}

TEST_F(ChatDatabaseSnapshotSweepTest, RemovesAllOfSeveral) {
    leaveBehind(name_);
    leaveBehind("tavrin-chatdb-00000000-0000-0000-0000-000000000000");

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 2U);
    EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

TEST_F(ChatDatabaseSnapshotSweepTest, RemovesManyInSeveralSteps) {
    for (int number = 0; number < 1'001; ++number) {
        const std::string digits = std::to_string(1'000'000'000'000 + number);
        leaveBehind("tavrin-chatdb-00000000-0000-0000-0000-" + digits.substr(1));
    }

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 1'000U);
    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 1U);
}

TEST_F(ChatDatabaseSnapshotSweepTest, KeepsForeignNames) {
    const std::vector<std::string> names{
        "6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F14",
        "tavrin-chatdb-",
        "tavrin-chatdb-6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F1",
        "tavrin-chatdb-6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F145",
        "tavrin-chatdb-6F1C0B2E09D4A-4E57-8C31-2A9B7D5E0F14",
        "tavrin-chatdb-6f1c0b2e-9d4a-4e57-8c31-2a9b7d5e0f14",
        "tavrin-chatdb-notes",
    };
    for (const std::string& name : names) {
        leaveBehind(name);
    }

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
    EXPECT_EQ(namesIn(temporary_.path()), names);
}

class ChatDatabaseSnapshotSweepAsRootTest : public ChatDatabaseSnapshotSweepTest {
protected:
    void SetUp() override { orvel::test::skipUnlessRoot(); }
};

TEST_F(ChatDatabaseSnapshotSweepAsRootTest, KeepsDirectoriesOfOtherUsers) {
    const fs::path directory = leaveBehind(name_);
    ASSERT_EQ(chown(directory.c_str(), 65534, 65534), 0);

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
    EXPECT_TRUE(fs::exists(directory / "chat.db"));
}

TEST_F(ChatDatabaseSnapshotSweepAsRootTest, KeepsWritableDirectoriesOfOtherUsers) {
    fs::permissions(leaveBehind(name_), fs::perms::all);
    fs::permissions(temporary_.path(), fs::perms::all);
    const UnprivilegedUser unprivileged;

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
}

TEST_F(ChatDatabaseSnapshotSweepTest, ReportsADirectoryThatCannotBeRemovedAfterTheOthers) {
    fs::permissions(temporary_.path(), fs::perms::all);
    const UnprivilegedUser unprivileged;
    const fs::path kept = leaveBehind(name_);
    leaveBehind("tavrin-chatdb-00000000-0000-0000-0000-000000000000");
    fs::permissions(kept, fs::perms::owner_read | fs::perms::owner_exec);

    fs::path reported;
    try {
        SnapshotDirectory::removeAbandoned();
    } catch (const fs::filesystem_error& error) {
        reported = error.path1();
    }
    EXPECT_EQ(reported, kept);
    EXPECT_THAT(namesIn(temporary_.path()), testing::ElementsAre(name_));
    fs::permissions(kept, fs::perms::owner_all);
}

TEST_F(ChatDatabaseSnapshotSweepTest, FollowsNoLinks) {
    const fs::path target = leaveBehind("target");
    fs::create_directory_symlink(target, temporary_ / name_);

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
    EXPECT_TRUE(fs::is_symlink(temporary_ / name_));
    EXPECT_THAT(namesIn(target), testing::ElementsAre("chat.db"));
}

TEST_F(ChatDatabaseSnapshotSweepTest, FollowsNoLinksInsideADirectory) {
    const fs::path target = leaveBehind("target");
    fs::create_directory_symlink(target, leaveBehind(name_) / "link");

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 1U);
    EXPECT_THAT(namesIn(target), testing::ElementsAre("chat.db"));
}

TEST_F(ChatDatabaseSnapshotSweepTest, KeepsFilesWithMatchingNames) {
    std::ofstream(temporary_ / name_) << "a file";

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
    EXPECT_TRUE(fs::exists(temporary_ / name_));
}

TEST_F(ChatDatabaseSnapshotSweepTest, FindsNothingWithoutATemporaryDirectory) {
    setenv("TMPDIR", (temporary_ / "missing").c_str(), 1);

    EXPECT_EQ(SnapshotDirectory::removeAbandoned(), 0U);
}

/// Adds one message in each step, and repeatedly restarts the write-ahead log, like the application
/// that owns the database.
class MessagesWriter final : public WritingProcess::Writer {
public:
    struct Restarts {
        /// Restarts the log after this number of messages, ...
        std::int64_t interval = 1;
        /// ... at most this many times in one `Work`.
        std::int64_t most = 0;
    };

    /// Creates the database with the messages in its main file.
    MessagesWriter(
        const fs::path& path,
        std::int64_t messages,
        Restarts restarts,
        WritingProcess::Committed& committed)
        : database_(path), restarts_(restarts), committed_(committed) {
        database_.addMessages(messages);
        database_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
        committed_ = database_.lastRowId();
    }

    void step(std::int64_t number) override {
        database_.addMessages(1);
        committed_ = database_.lastRowId();
        const std::int64_t restart = number / restarts_.interval;
        if (number % restarts_.interval == 0 && restart <= restarts_.most) {
            database_.execute(
                restart % 2 == 0 ? "PRAGMA wal_checkpoint(TRUNCATE)"
                                 : "PRAGMA wal_checkpoint(RESTART)");
        }
    }

private:
    WritableDatabase database_;
    Restarts restarts_;
    WritingProcess::Committed& committed_;
};

/// Compares snapshots with plain copies, while another process writes to the database.
class ChatDatabaseSnapshotLiveWriterTest : public ChatDatabaseSnapshotTest {
protected:
    WritingProcess::MakeWriter
    writerOf(std::int64_t messages, MessagesWriter::Restarts restarts) const {
        return [this, messages, restarts](WritingProcess::Committed& committed) {
            return std::make_unique<MessagesWriter>(source_, messages, restarts, committed);
        };
    }

    /// Expects intact snapshots, and prints how many plain copies were torn. If `workPerCopy` is
    /// set, the writer does that work during each copy.
    void compareWithPlainOrder(
        WritingProcess& writer,
        int rounds,
        const std::optional<WritingProcess::Work>& workPerCopy,
        const ChatDatabaseSnapshot::Pause& pause) {
        const auto realCopier = orvel::test::makeRealFileCopier();
        FileCopier& plainCopier = *realCopier;
        const auto whileWriting = [&](const std::function<bool(std::int64_t committed)>& copy) {
            if (workPerCopy) {
                writer.begin(*workPerCopy);
            }
            const bool isWhole = copy(writer.committed());
            if (workPerCopy) {
                writer.finish();
            }
            return isWhole;
        };
        int torn = 0;
        for (int round = 0; round < rounds; ++round) {
            EXPECT_TRUE(whileWriting([&](std::int64_t committed) {
                const ChatDatabaseSnapshot snapshot(copier_, source_, {}, pause);
                return holdsMessages(snapshot, committed);
            })) << "round "
                << round;
            const bool isPlainWhole = whileWriting([&](std::int64_t committed) {
                const TemporaryDirectory directory;
                copyInPlainOrder(plainCopier, source_, directory / "chat.db");
                SQLiteDatabase database(directory / "chat.db");
                return holdsMessages(database, committed);
            });
            torn += isPlainWhole ? 0 : 1;
        }
        std::cout << rounds << " snapshots took " << copiesOfMainFile() << " copies; " << torn
                  << " of " << rounds << " copies in the plain order were torn\n";
    }
};

TEST_F(ChatDatabaseSnapshotLiveWriterTest, HoldsEveryMessageCommittedBefore) {
    WritingProcess writer(writerOf(2000, {.interval = 15, .most = 4}));
    // Even on a slow machine, some attempt finds the log neither restarted nor empty: there are
    // fewer restarts than attempts, and the work ends with messages in the log.
    compareWithPlainOrder(writer, 30, WritingProcess::Work{.steps = 150}, [&](auto, const auto&) {
        writer.awaitSteps(1);
    });
}

/// Takes some minutes. Run it with `--gtest_also_run_disabled_tests`.
TEST_F(ChatDatabaseSnapshotLiveWriterTest, DISABLED_HoldsEveryMessageOfALargeDatabase) {
    WritingProcess writer(
        writerOf(265'000, {.interval = 200, .most = std::numeric_limits<std::int64_t>::max()}));
    std::cout << "The database has " << fs::file_size(source_) << " bytes\n";
    writer.begin({.steps = WritingProcess::endless, .pauseAfterStep = 5ms});

    compareWithPlainOrder(writer, 150, std::nullopt, ChatDatabaseSnapshot::wait);
}

} // namespace
} // namespace tavrin
