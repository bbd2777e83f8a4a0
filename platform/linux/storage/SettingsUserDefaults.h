// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace orvel {

/// User defaults in a QSettings file with one key per line, for example
///
///     collection.mode=metadataOnly
///     messages.backfill.done=true
///     messages.last24h.at=2024-03-09T17:05:42.123Z
///     messages.rowid.watermark=4711
///
/// The text determines the type: integers in their shortest form, "true" and "false", and dates
/// exactly as above; anything else is a string. A string that looks like another type, or starts
/// with an apostrophe or a byte order mark, gets an apostrophe prefix. A line break is written as
/// "\n" and a backslash as two. Keys must not contain "=" or a line break.
///
/// A process changes only the keys it sets. Other processes' changes become visible with this
/// process's next write.
class SettingsUserDefaults final : public tavrin::UserDefaults {
public:
    /// "orvel-agent/defaults.conf" in the user's configuration folder.
    [[nodiscard]] static std::filesystem::path defaultFile();

    /// A missing file counts as empty. Throws `tavrin::PlatformError` when the file cannot be read
    /// or belongs to another user.
    explicit SettingsUserDefaults(const std::filesystem::path& file);

    [[nodiscard]] std::optional<Value> value(std::string_view key) const override;
    /// The year of a date must have four digits.
    void set(std::string_view key, Value value) override;
    void remove(std::string_view key) override;
    /// Locks the file of that name with ".inuse" added.
    [[nodiscard]] std::unique_ptr<Interface> tryLock() override;

private:
    void read();
    void write(std::string_view key, const std::optional<Value>& value);

    std::filesystem::path file_;
    /// Held while a write reaches the disk. Locked before `valuesMutex_`.
    std::mutex writeMutex_;
    mutable std::mutex valuesMutex_;
    /// The last content read or written.
    std::map<std::string, Value, std::less<>> values_;
};

} // namespace orvel
