// SPDX-License-Identifier: Apache-2.0
#include "core/messages/ChatDatabaseSnapshot.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/messages/FileCopier.h"
#include "core/messages/RollbackJournal.h"
#include "core/messages/SQLiteDatabase.h"
#include "core/messages/SnapshotDirectory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <future>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace tavrin {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::string_view logSuffix = "-wal";
constexpr std::string_view logIndexSuffix = "-shm";
constexpr std::string_view journalSuffix = "-journal";
constexpr std::chrono::milliseconds firstPause = 10ms;
constexpr std::chrono::milliseconds longestPause = 500ms;
/// Instructions of SQLite. The statements of a scan take about seven per message, so this is enough
/// for forty million messages. Only a view that a hostile file has in place of a table needs more.
constexpr std::int64_t mostWorkPerStatement = 300'000'000;
/// File times come from a coarse clock: two changes within this time can have the same time stamp.
constexpr auto timeStampGranularity = 50ms;

std::string describe(const ChatDatabaseSnapshot::Error::Case& error) {
    struct Description {
        std::string operator()(const ChatDatabaseSnapshot::Error::SourceMissing& missing) const {
            return "Messages database not found at " + missing.path;
        }
        std::string operator()(const ChatDatabaseSnapshot::Error::PermissionDenied& denied) const {
            return "Full Disk Access is required to read " + denied.path;
        }
        std::string operator()(const ChatDatabaseSnapshot::Error::CopyFailed& failed) const {
            return "Could not copy " + failed.path + ": " + failed.reason;
        }
    };
    return std::visit(Description{}, error);
}

bool exists(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

bool isReadable(const fs::path& path) {
    return faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
}

void requireReadable(const std::string& sourcePath) {
    using Error = ChatDatabaseSnapshot::Error;
    if (isReadable(sourcePath)) {
        return;
    }
    // Without access to the directory, we cannot tell whether the file exists.
    if (!exists(sourcePath) && isReadable(fs::path(sourcePath).parent_path())) {
        throw Error(Error::SourceMissing{sourcePath});
    }
    throw Error(Error::PermissionDenied{sourcePath});
}

/// The state of the source files at one moment. Comparing the states before and after a copy shows
/// whether the copy is consistent.
///
/// The log only grows until it is restarted. It is copied after the main file, so its copy contains
/// every page that a checkpoint may have written to the main file meanwhile. SQLite ignores an
/// incomplete transaction at its end. A restart writes a new header before it overwrites the first
/// old frame.
class SourceState final {
public:
    explicit SourceState(const std::string& sourcePath) {
        const FileDescriptor log(
            open((sourcePath + std::string(logSuffix)).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        LogHeader header{};
        if (log.isOpen() &&
            pread(log.get(), header.data(), header.size(), 0) == std::ssize(header)) {
            logGeneration_.emplace();
            std::copy_n(
                header.begin() + generationOffset, logGeneration_->size(), logGeneration_->begin());
        }
        struct stat status {};
        if (stat(sourcePath.c_str(), &status) == 0) {
            device_ = status.st_dev;
            inode_ = status.st_ino;
            size_ = status.st_size;
        }
        std::error_code ignored;
        modified_ = fs::last_write_time(sourcePath, ignored);
        isSettled_ =
            std::chrono::abs(fs::file_time_type::clock::now() - modified_) > timeStampGranularity;
    }

    /// Whether this state can be compared with a later one.
    [[nodiscard]] bool canVouch() const { return logGeneration_.has_value() || isSettled_; }

    /// Whether a copy made between this state and the later one is consistent.
    [[nodiscard]] bool vouchesFor(bool copiedLog, const SourceState& later) const {
        if (logGeneration_ != later.logGeneration_ || device_ != later.device_ ||
            inode_ != later.inode_) {
            return false;
        }
        if (copiedLog && logGeneration_.has_value()) {
            return true;
        }
        // Without a log, the main file must not have changed at all.
        return isSettled_ && size_ == later.size_ && modified_ == later.modified_;
    }

private:
    using LogHeader = std::array<char, 32>;
    /// Checkpoint sequence number and both salts of the log's header.
    static constexpr int generationOffset = 12;
    using LogGeneration = std::array<char, 12>;

    /// No value if there is no log or it is empty.
    std::optional<LogGeneration> logGeneration_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    off_t size_ = 0;
    fs::file_time_type modified_;
    bool isSettled_ = false;
};

struct CompanionCopy {
    bool isCopied = false;
    /// Why an existing file could not be copied.
    std::optional<std::string> failure;
};

CompanionCopy copyCompanion(
    FileCopier& copier,
    const std::string& source,
    const std::string& destination,
    const CancellationToken& cancellation) {
    CompanionCopy copy;
    if (!exists(source)) {
        return copy;
    }
    try {
        copier.copy(source, destination, cancellation);
        copy.isCopied = true;
    } catch (const PlatformError& error) {
        // The main file alone may still be a consistent, older state. The caller checks that.
        copy.failure = error.what();
    }
    return copy;
}

/// `SQLiteDatabase` inserts the path into a URI as it is.
std::string escapedForURI(const std::string& path) {
    // After two slashes, a URI names a host.
    std::string escaped = path.starts_with("//") ? "//" : "";
    for (const char character : path) {
        switch (character) {
        case '%':
            escaped += "%25";
            break;
        case '?':
            escaped += "%3F";
            break;
        case '#':
            escaped += "%23";
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

std::shared_ptr<SQLiteDatabase> openCopy(const std::string& path) {
    try {
        return std::make_shared<SQLiteDatabase>(escapedForURI(path));
    } catch (const SQLiteError& error) {
        if (const auto* open = std::get_if<SQLiteError::Open>(&error.error())) {
            throw SQLiteError(SQLiteError::Open{path, open->message});
        }
        throw;
    }
}

/// What SQLite finds wrong with the copy of the main file without its log. No value if it is
/// intact. A checkpoint may have written only some pages of a change. Then rows are missing, and
/// reading reports no error.
std::optional<std::string>
damageWithoutLog(const std::string& path, const CancellationToken& cancellation) {
    std::optional<std::string> damage = "the check gave no result";
    try {
        const std::shared_ptr<SQLiteDatabase> database = openCopy(path);
        database->observe(cancellation);
        database->query("PRAGMA quick_check(1)", {}, [&damage](const SQLiteDatabase::Row& row) {
            damage = row.string(0);
            if (damage == "ok") {
                damage.reset();
            }
        });
    } catch (const SQLiteError& error) {
        damage = error.what();
    }
    if (damage) {
        std::replace(damage->begin(), damage->end(), '\n', ' ');
    }
    // Remove the log files that the check created.
    for (const std::string_view suffix : {logSuffix, logIndexSuffix}) {
        std::error_code ignored;
        fs::remove(path + std::string(suffix), ignored);
    }
    return damage;
}

/// The result of copying all files once.
struct Attempt {
    /// Why the copy is not consistent. No value if it is.
    std::optional<std::string> failure;
    /// Whether another attempt would fail as well.
    bool isFinal = false;
    std::optional<std::string> logCopyFailure;
};

/// Throws if the main file cannot be copied.
Attempt copyOnce(
    FileCopier& copier,
    const std::string& source,
    const std::string& destination,
    const CancellationToken& cancellation) {
    Attempt attempt;
    attempt.failure = "it kept changing while it was being copied";
    const SourceState before(source);
    if (!before.canVouch()) {
        return attempt;
    }
    const std::array<std::string, 3> suffixes{
        "", std::string(logSuffix), std::string(logIndexSuffix)};
    for (const std::string& suffix : suffixes) {
        std::error_code ignored;
        fs::remove(destination + suffix, ignored);
    }
    copier.copy(source, destination, cancellation);
    const CompanionCopy log =
        copyCompanion(copier, source + suffixes[1], destination + suffixes[1], cancellation);
    // It may be newer than the log's copy. That does no harm: the first connection to a database
    // that no other process has open rebuilds this file from the log.
    copyCompanion(copier, source + suffixes[2], destination + suffixes[2], cancellation);
    const std::string journal = source + std::string(journalSuffix);
    const bool isUnfinished = RollbackJournal::hasChanged(destination, journal);
    const bool lacksLog = !log.isCopied && exists(source + suffixes[1]);
    if (!before.vouchesFor(log.isCopied, SourceState(source))) {
        return attempt;
    }
    if (isUnfinished) {
        // The writer may be about to finish it.
        attempt.failure = "it contains an unfinished change, which only the application that made "
                          "it can undo with the help of " +
                          journal;
        return attempt;
    }
    const auto damage =
        lacksLog ? damageWithoutLog(destination, cancellation) : std::optional<std::string>();
    if (damage) {
        attempt.failure = "its write-ahead log could not be copied (" +
                          log.failure.value_or("it has just appeared") +
                          "), and the database cannot be read without it (" + *damage + ")";
        attempt.isFinal = true;
        return attempt;
    }
    attempt.failure.reset();
    attempt.logCopyFailure = log.failure;
    return attempt;
}

} // namespace

ChatDatabaseSnapshot::Error::Error(Case error)
    : error_(std::move(error)), description_(describe(error_)) {}

void ChatDatabaseSnapshot::wait(
    std::chrono::milliseconds duration, const CancellationToken& cancellation) {
    std::promise<void> cancelled;
    const auto registration = cancellation.onCancel([&] { cancelled.set_value(); });
    cancelled.get_future().wait_for(duration);
}

std::string ChatDatabaseSnapshot::defaultSourcePath() {
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
        const passwd* user = getpwuid(geteuid());
        home = user != nullptr ? user->pw_dir : "/";
    }
    return fs::path(home) / "Library/Messages/chat.db";
}

ChatDatabaseSnapshot::ChatDatabaseSnapshot(
    FileCopier& copier,
    const std::string& sourcePath,
    const CancellationToken& cancellation,
    const Pause& pause,
    std::shared_ptr<LiveSnapshots> live) {
    requireReadable(sourcePath);
    directory_ = std::make_unique<SnapshotDirectory>(std::move(live));
    databasePath_ = directory() / fs::path(sourcePath).filename();
    // SQLite keeps the log next to the file itself, not next to a symbolic link to it.
    std::error_code ignored;
    const fs::path resolved = fs::canonical(sourcePath, ignored);
    const std::string source = resolved.empty() ? sourcePath : resolved.string();
    std::chrono::milliseconds nextPause = firstPause;
    try {
        for (int number = 1;; ++number) {
            const Attempt attempt = copyOnce(copier, source, databasePath_, cancellation);
            if (!attempt.failure) {
                logCopyFailure_ = attempt.logCopyFailure;
                return;
            }
            if (attempt.isFinal || number == maximumAttempts) {
                throw Error(Error::CopyFailed{sourcePath, *attempt.failure});
            }
            pause(nextPause, cancellation);
            cancellation.throwIfCancelled();
            nextPause = std::min(nextPause * 2, longestPause);
        }
    } catch (const PlatformError& error) {
        throw Error(Error::CopyFailed{sourcePath, error.what()});
    }
}

ChatDatabaseSnapshot::~ChatDatabaseSnapshot() = default;

std::shared_ptr<SQLiteDatabase> ChatDatabaseSnapshot::open() const {
    const std::shared_ptr<SQLiteDatabase> database = openCopy(databasePath_);
    database->limitWork(mostWorkPerStatement);
    return database;
}

const fs::path& ChatDatabaseSnapshot::directory() const {
    return directory_->path();
}

} // namespace tavrin
