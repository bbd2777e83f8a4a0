// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Interface.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {

/// Small typed values by key that persist between processes.
///
/// A getter returns no value if the key is missing or its value has another type. A setter returns
/// once the value is on disk. If writing fails it throws `PlatformError`, and the old value stays
/// in effect, on disk and for every getter.
///
/// Thread-safe: a read never waits for another thread's write to reach the disk.
class UserDefaults : public Interface {
public:
    [[nodiscard]] virtual std::optional<std::string> string(std::string_view key) const = 0;
    [[nodiscard]] virtual std::optional<std::int64_t> integer(std::string_view key) const = 0;
    [[nodiscard]] virtual std::optional<bool> boolean(std::string_view key) const = 0;
    /// With millisecond precision.
    [[nodiscard]] virtual std::optional<Date> date(std::string_view key) const = 0;

    virtual void setString(std::string_view key, std::string_view value) = 0;
    virtual void setInteger(std::string_view key, std::int64_t value) = 0;
    virtual void setBoolean(std::string_view key, bool value) = 0;
    virtual void setDate(std::string_view key, Date value) = 0;
    /// Removing a missing key is not an error.
    virtual void remove(std::string_view key) = 0;
};

} // namespace tavrin
