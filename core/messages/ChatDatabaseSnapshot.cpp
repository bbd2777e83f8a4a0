// SPDX-License-Identifier: Apache-2.0
#include "core/messages/ChatDatabaseSnapshot.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/messages/FileCopier.h"
#include "core/messages/SQLiteDatabase.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
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
constexpr std::chrono::milliseconds firstPause = 10ms;
constexpr std::chrono::milliseconds longestPause = 500ms;
/// File systems stamp changes by a coarse clock: a second change this soon after the first can
/// leave the time as it is.
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
    if (!exists(sourcePath)) {
        // Where we may not look, nothing can be said to be missing.
        if (isReadable(fs::path(sourcePath).parent_path())) {
            throw ChatDatabaseSnapshot::Error(
                ChatDatabaseSnapshot::Error::SourceMissing{sourcePath});
        }
        throw ChatDatabaseSnapshot::Error(
            ChatDatabaseSnapshot::Error::PermissionDenied{sourcePath});
    }
    if (!isReadable(sourcePath)) {
        throw ChatDatabaseSnapshot::Error(
            ChatDatabaseSnapshot::Error::PermissionDenied{sourcePath});
    }
}

/// What the copies of the source's files must have had in common to fit each other.
///
/// While the log is not restarted, it only grows: its copy, made after that of the main file, holds
/// every page that a checkpoint may have been writing into the main file meanwhile, and a half-made
/// transaction at its end does not count. A restart begins with a new header, before the first old
/// frame is overwritten.
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

    /// Whether copies made from now on can be judged by this state.
    [[nodiscard]] bool canVouch() const { return logGeneration_.has_value() || isSettled_; }

    /// Whether what was copied between this state and the later one belongs together.
    [[nodiscard]] bool vouchesFor(bool copiedLog, const SourceState& later) const {
        if (logGeneration_ != later.logGeneration_ || device_ != later.device_ ||
            inode_ != later.inode_) {
            return false;
        }
        if (copiedLog && logGeneration_.has_value()) {
            return true;
        }
        // The copied main file stands alone: it must not have changed at all.
        return isSettled_ && size_ == later.size_ && modified_ == later.modified_;
    }

private:
    using LogHeader = std::array<char, 32>;
    /// Checkpoint sequence number and both salts of the log's header.
    static constexpr int generationOffset = 12;
    using LogGeneration = std::array<char, 12>;

    /// Absent without a log that has content.
    std::optional<LogGeneration> logGeneration_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    off_t size_ = 0;
    fs::file_time_type modified_;
    bool isSettled_ = false;
};

/// Whether there is a copy now.
bool copyCompanion(
    FileCopier& copier,
    const std::string& source,
    const std::string& destination,
    const CancellationToken& cancellation) {
    if (!exists(source)) {
        return false;
    }
    try {
        copier.copy(source, destination, cancellation);
        return true;
    } catch (const PlatformError&) {
        // The main file alone may be a snapshot too, if an older one.
        return false;
    }
}

/// Whether the copy of a main file whose log is missing can be read by itself. A checkpoint may
/// have carried over some pages of a change and not others; then rows are missing and no read says
/// so.
bool isWholeWithoutLog(const std::string& path) {
    bool isWhole = false;
    try {
        SQLiteDatabase database(path);
        database.query("PRAGMA quick_check(1)", {}, [&isWhole](const SQLiteDatabase::Row& row) {
            isWhole = row.string(0) == "ok";
        });
    } catch (const SQLiteError&) {
        isWhole = false;
    }
    // Files of the log's names that the look at it left.
    for (const std::string_view suffix : {logSuffix, logIndexSuffix}) {
        std::error_code ignored;
        fs::remove(path + std::string(suffix), ignored);
    }
    return isWhole;
}

/// One try at a copy of all files; whether they fit each other. Throws when there is none of the
/// main file.
bool copyOnce(
    FileCopier& copier,
    const std::string& source,
    const std::string& destination,
    const CancellationToken& cancellation) {
    const SourceState before(source);
    if (!before.canVouch()) {
        return false;
    }
    std::array<std::string, 3> suffixes{"", std::string(logSuffix), std::string(logIndexSuffix)};
    for (const std::string& suffix : suffixes) {
        std::error_code ignored;
        fs::remove(destination + suffix, ignored);
    }
    copier.copy(source, destination, cancellation);
    const bool copiedLog =
        copyCompanion(copier, source + suffixes[1], destination + suffixes[1], cancellation);
    // It may be newer than the log's copy, yet cannot mislead: the first connection to a database
    // that no other process has open empties this file and builds it anew from the log.
    copyCompanion(copier, source + suffixes[2], destination + suffixes[2], cancellation);
    const bool lacksLog = !copiedLog && exists(source + suffixes[1]);
    return before.vouchesFor(copiedLog, SourceState(source)) &&
           (!lacksLog || isWholeWithoutLog(destination));
}

std::string makeDirectoryName() {
    std::string name = boost::uuids::to_string(boost::uuids::random_generator()());
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char character) {
        return static_cast<char>(std::toupper(character));
    });
    return std::string(ChatDatabaseSnapshot::directoryPrefix) + name;
}

bool isDirectoryName(std::string_view name) {
    constexpr std::string_view form = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";
    if (!name.starts_with(ChatDatabaseSnapshot::directoryPrefix)) {
        return false;
    }
    name.remove_prefix(ChatDatabaseSnapshot::directoryPrefix.size());
    return std::equal(name.begin(), name.end(), form.begin(), form.end(), [](char is, char should) {
        constexpr std::string_view digits = "0123456789ABCDEF";
        return should == 'X' ? digits.find(is) != std::string_view::npos : is == should;
    });
}

/// The descriptor that holds the lock on this directory; none when somebody else holds it, when it
/// is not ours, or when the path no longer leads to it.
FileDescriptor lock(const fs::path& directory) {
    FileDescriptor descriptor(
        open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat locked {};
    struct stat named {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &locked) != 0 ||
        locked.st_uid != geteuid() || flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0 ||
        lstat(directory.c_str(), &named) != 0 || locked.st_dev != named.st_dev ||
        locked.st_ino != named.st_ino) {
        return {};
    }
    return descriptor;
}

} // namespace

/// A fresh locked directory, removed with all it holds.
class ChatDatabaseSnapshot::Directory final {
public:
    Directory() {
        const fs::path parent = temporaryDirectory();
        fs::create_directories(parent);
        // A sweep between making and locking takes the directory for abandoned: make another. The
        // bound is for file systems that know no locks.
        for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
            path_ = parent / makeDirectoryName();
            if (mkdir(path_.c_str(), S_IRWXU) != 0) {
                throw fs::filesystem_error(
                    "Could not make a directory",
                    path_,
                    std::error_code(errno, std::generic_category()));
            }
            lock_ = lock(path_);
            if (lock_.isOpen()) {
                return;
            }
            std::error_code ignored;
            fs::remove(path_, ignored);
        }
        throw fs::filesystem_error(
            "Could not lock a directory",
            path_,
            std::make_error_code(std::errc::no_lock_available));
    }

    ~Directory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }

    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    [[nodiscard]] const fs::path& path() const { return path_; }

private:
    fs::path path_;
    FileDescriptor lock_;
};

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

fs::path ChatDatabaseSnapshot::temporaryDirectory() {
    const char* directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != '\0' ? directory : "/tmp";
}

std::size_t ChatDatabaseSnapshot::removeAbandoned() {
    std::vector<fs::path> candidates;
    std::error_code error;
    for (fs::directory_iterator entry(temporaryDirectory(), error), end; !error && entry != end;
         entry.increment(error)) {
        if (isDirectoryName(entry->path().filename().native())) {
            candidates.push_back(entry->path());
        }
    }
    return static_cast<std::size_t>(
        std::count_if(candidates.begin(), candidates.end(), [](const fs::path& candidate) {
            const FileDescriptor held = lock(candidate);
            std::error_code failure;
            return held.isOpen() && fs::remove_all(candidate, failure) > 0 && !failure;
        }));
}

ChatDatabaseSnapshot::ChatDatabaseSnapshot(
    FileCopier& copier,
    const std::string& sourcePath,
    const CancellationToken& cancellation,
    const Pause& pause) {
    requireReadable(sourcePath);
    directory_ = std::make_unique<Directory>();
    databasePath_ = directory() / fs::path(sourcePath).filename();
    // The log lies beside the file itself, not beside a link to it.
    std::error_code ignored;
    const fs::path resolved = fs::canonical(sourcePath, ignored);
    const std::string source = resolved.empty() ? sourcePath : resolved.string();
    std::chrono::milliseconds nextPause = firstPause;
    try {
        for (int attempt = 1; !copyOnce(copier, source, databasePath_, cancellation); ++attempt) {
            if (attempt == maximumAttempts) {
                throw Error(
                    Error::CopyFailed{sourcePath, "it kept changing while it was being copied"});
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
    return std::make_shared<SQLiteDatabase>(databasePath_);
}

const fs::path& ChatDatabaseSnapshot::directory() const {
    return directory_->path();
}

} // namespace tavrin
