// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {

/// Small typed values by key that outlive the process.
///
/// A getter gives no value when nothing is stored under the key or when what is stored is not of
/// that type. A setter returns once the value is on disk; it throws `PlatformError` when it could
/// not be written, and then the old value still stands, on disk and for every getter.
///
/// Thread-safe: a read never waits for another thread's write to reach the disk.
class UserDefaults {
public:
    UserDefaults() = default;
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;
    virtual ~UserDefaults() = default;

    [[nodiscard]] virtual std::optional<std::string> string(std::string_view key) const = 0;
    [[nodiscard]] virtual std::optional<std::int64_t> integer(std::string_view key) const = 0;
    [[nodiscard]] virtual std::optional<bool> boolean(std::string_view key) const = 0;
    /// To the millisecond.
    [[nodiscard]] virtual std::optional<Date> date(std::string_view key) const = 0;

    virtual void setString(std::string_view key, std::string_view value) = 0;
    virtual void setInteger(std::string_view key, std::int64_t value) = 0;
    virtual void setBoolean(std::string_view key, bool value) = 0;
    virtual void setDate(std::string_view key, Date value) = 0;
    /// Removing what is not there is no error.
    virtual void remove(std::string_view key) = 0;
};

} // namespace tavrin
