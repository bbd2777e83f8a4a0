// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "tools/sample/MessageWriter.h"
#include "tools/sample/SampleDatabaseError.h"
#include "tools/sample/SampleMessages.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>

/// Writes a sample as a Messages database file with the columns, indexes and write-ahead log of a
/// real one.
namespace orvel::SampleMessagesDatabase {

using Error = SampleDatabaseError;

/// The columns that may be left out, because some versions of the system lack them. Columns of the
/// message table are named without their table.
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
    /// The time between the oldest and the newest message.
    std::chrono::seconds span = std::chrono::days(365);
    /// A subset of `optionalColumns`.
    std::set<std::string> withoutColumns = {};
    /// Leaves the newest messages in the write-ahead log, as if Messages were running.
    bool keepsLog = true;
    bool overwrites = false;
};

struct AppendOptions {
    /// The same options as for `create()`. The number of chats is read from the database.
    SampleMessages::Options content = {};
    std::int64_t messageCount = 1;
    /// The time of the newest message. By default the new messages are a minute apart.
    std::optional<tavrin::Date> newest = {};
    bool keepsLog = true;
};

struct Summary {
    std::int64_t messageCount = 0;
    std::int64_t lastRowID = 0;
    std::size_t chatCount = 0;
    std::size_t handleCount = 0;
};

/// Also creates missing parent folders. On failure, no file is left.
Summary create(
    const std::filesystem::path& path,
    const Options& options,
    const WriteProgress& onProgress = {});

/// Adds messages that are newer than all others. Another process may have the database open.
Summary append(
    const std::filesystem::path& path,
    const AppendOptions& options,
    const WriteProgress& onProgress = {});

} // namespace orvel::SampleMessagesDatabase
