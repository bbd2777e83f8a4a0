// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "tools/sample/SampleMessages.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <variant>

/// Writes a sample as a Messages database file, with the columns, indexes and write-ahead log of a
/// live one.
namespace orvel::SampleMessagesDatabase {

class Error final : public std::exception {
public:
    struct AlreadyExists {
        std::string path;
    };
    /// A database that does not continue with the given seed, or is no sample at all.
    struct AnotherSample {
        std::string path;
    };
    struct NotLater {
        std::string path;
    };
    struct File {
        std::string path;
        std::string reason;
    };
    struct Database {
        std::string path;
        std::string message;
    };
    using Case = std::variant<AlreadyExists, AnotherSample, NotLater, File, Database>;

    explicit Error(Case error);

    [[nodiscard]] const Case& error() const { return error_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    Case error_;
    std::string description_;
};

/// The columns that may be left out, as some versions of the system do. Those of the message table
/// bear their name alone.
inline const std::set<std::string> optionalColumns = {
    "associated_message_type",
    "attributedBody",
    "cache_has_attachments",
    "chat.style",
    "item_type",
    "service",
};

struct Options {
    SampleMessages::Options content = {};
    std::int64_t messageCount = 2'000;
    /// 2025-03-01 12:00:00 UTC.
    tavrin::Date newest{tavrin::Seconds(1'740'830'400)};
    /// The messages are spread over so much time before the newest.
    std::chrono::seconds span = std::chrono::days(365);
    /// Some of `optionalColumns`.
    std::set<std::string> withoutColumns = {};
    /// The last messages stay in a log beside the file, as if Messages were running.
    bool keepsLog = true;
    bool overwrites = false;
};

struct AppendOptions {
    /// As when the database was made; the number of chats is taken from the database.
    SampleMessages::Options content = {};
    std::int64_t messageCount = 1;
    /// The new messages are spread up to this time; without it they are a minute apart.
    std::optional<tavrin::Date> newest = {};
    bool keepsLog = true;
};

struct Summary {
    std::int64_t messageCount = 0;
    std::int64_t lastRowID = 0;
    std::size_t chatCount = 0;
    std::size_t handleCount = 0;
};

/// Called now and then with the number of messages written.
using Progress = std::function<void(std::int64_t written)>;

/// Makes the folders above the file too. When it fails, no file is left behind.
Summary
create(const std::filesystem::path& path, const Options& options, const Progress& onProgress = {});

/// Adds messages newer than all others. Another process may have the database open.
Summary append(
    const std::filesystem::path& path,
    const AppendOptions& options,
    const Progress& onProgress = {});

} // namespace orvel::SampleMessagesDatabase
