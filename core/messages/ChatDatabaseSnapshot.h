// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>

namespace tavrin {

class FileCopier;
class SQLiteDatabase;
class SnapshotDirectory;

/// A private copy of the Messages database, removed with the object.
///
/// The copy holds the database file and its write-ahead-log companions in a directory of its own,
/// readable by the owner only. The copy is consistent and has everything committed before: if the
/// writer restarts its log during the copy, the copy is made again. Making one blocks; any thread.
///
/// Reading the files closes descriptors of them, which drops this process's POSIX locks on them: a
/// process must not make a snapshot of a database that it has open itself.
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
            /// Why, in words for the user.
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

    /// Lets the given time pass, or less once the token is cancelled.
    using Pause = std::function<void(std::chrono::milliseconds, const CancellationToken&)>;

    /// Copies made before a source that never holds still is given up.
    static constexpr int maximumAttempts = 10;

    /// The `Pause` that blocks this thread.
    static void wait(std::chrono::milliseconds duration, const CancellationToken& cancellation);

    /// `Library/Messages/chat.db` in the user's home directory.
    [[nodiscard]] static std::string defaultSourcePath();

    /// Throws `Error`, `std::filesystem::filesystem_error` when the directory cannot be made, and
    /// `TaskCancelled`; nothing stays behind then.
    explicit ChatDatabaseSnapshot(
        FileCopier& copier,
        const std::string& sourcePath = defaultSourcePath(),
        const CancellationToken& cancellation = {},
        const Pause& pause = wait);
    ~ChatDatabaseSnapshot();
    ChatDatabaseSnapshot(const ChatDatabaseSnapshot&) = delete;
    ChatDatabaseSnapshot& operator=(const ChatDatabaseSnapshot&) = delete;

    /// A new connection at every call; the snapshot must outlive it. Throws `SQLiteError`.
    [[nodiscard]] std::shared_ptr<SQLiteDatabase> open() const;

    [[nodiscard]] const std::string& databasePath() const { return databasePath_; }
    [[nodiscard]] const std::filesystem::path& directory() const;

private:
    std::unique_ptr<SnapshotDirectory> directory_;
    std::string databasePath_;
};

} // namespace tavrin
