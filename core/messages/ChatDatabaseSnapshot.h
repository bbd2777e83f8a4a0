// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace tavrin {

class FileCopier;
class LiveSnapshots;
class SQLiteDatabase;
class SnapshotDirectory;

/// A private copy of the Messages database. The destructor removes it.
///
/// The database file and its write-ahead-log files are copied into a new directory that only the
/// owner can read. The copy is consistent and contains everything committed before, unless the log
/// cannot be copied. If the writer restarts its log meanwhile, the files are copied again. The
/// constructor blocks and may run on any thread.
///
/// A process must not make a snapshot of a database that it has open: closing the copied files
/// drops all POSIX locks of the process on them.
class ChatDatabaseSnapshot final {
public:
    class Error final : public std::exception {
    public:
        struct SourceMissing {
            std::string path;
        };
        struct PermissionDenied {
            std::string path;
        };
        struct CopyFailed {
            std::string path;
            /// Shown to the user.
            std::string reason;
        };
        using Case = std::variant<SourceMissing, PermissionDenied, CopyFailed>;

        explicit Error(Case error);

        [[nodiscard]] const Case& error() const { return error_; }
        [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

    private:
        Case error_;
        std::string description_;
    };

    /// Waits for the given time, or until the token is cancelled.
    using Pause = std::function<void(std::chrono::milliseconds, const CancellationToken&)>;

    /// How often a changing source is copied before giving up.
    static constexpr int maximumAttempts = 10;

    /// The default `Pause`. Blocks this thread.
    static void wait(std::chrono::milliseconds duration, const CancellationToken& cancellation);

    /// `Library/Messages/chat.db` in the user's home directory.
    [[nodiscard]] static std::string defaultSourcePath();

    /// Throws `Error`, `TaskCancelled`, or `PlatformError` if the directory cannot be created. On
    /// failure nothing is left on disk.
    explicit ChatDatabaseSnapshot(
        FileCopier& copier,
        const std::string& sourcePath = defaultSourcePath(),
        const CancellationToken& cancellation = {},
        const Pause& pause = wait,
        std::shared_ptr<LiveSnapshots> live = nullptr);
    ~ChatDatabaseSnapshot();
    ChatDatabaseSnapshot(const ChatDatabaseSnapshot&) = delete;
    ChatDatabaseSnapshot& operator=(const ChatDatabaseSnapshot&) = delete;

    /// A new connection on every call. Its statements end with an error if they take far more work
    /// than those of a scan. The snapshot must outlive it. Throws `SQLiteError`.
    [[nodiscard]] std::shared_ptr<SQLiteDatabase> open() const;

    [[nodiscard]] const std::string& databasePath() const { return databasePath_; }
    [[nodiscard]] const std::filesystem::path& directory() const;
    /// Why the write-ahead log could not be copied. Then the newest messages are missing.
    [[nodiscard]] const std::optional<std::string>& logCopyFailure() const {
        return logCopyFailure_;
    }

private:
    std::unique_ptr<SnapshotDirectory> directory_;
    std::string databasePath_;
    std::optional<std::string> logCopyFailure_;
};

} // namespace tavrin
