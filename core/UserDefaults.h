// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Interface.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tavrin {

/// Small typed values by key that persist between processes.
///
/// `set` and `remove` return once the change is on disk. If writing fails they throw
/// `PlatformError`, and the old value stays in effect, on disk and for every reader.
///
/// Thread-safe: a read never waits for another thread's write to reach the disk.
class UserDefaults : public Interface {
public:
    /// Dates have millisecond precision.
    using Value = std::variant<std::string, std::int64_t, bool, Date>;

    [[nodiscard]] virtual std::optional<Value> value(std::string_view key) const = 0;
    virtual void set(std::string_view key, Value value) = 0;
    /// Removing a missing key is not an error.
    virtual void remove(std::string_view key) = 0;

    /// Excludes other holders, in this process and in others, until the returned object is
    /// destroyed or the process ends. Reads and writes need no lock. Null while there is another
    /// holder. Otherwise other processes' changes are visible afterwards. Throws `PlatformError` if
    /// the lock cannot be created or the values cannot be read.
    [[nodiscard]] virtual std::unique_ptr<Interface> tryLock() = 0;
};

/// No value if the key is missing or its value has another type.
template <typename T>
[[nodiscard]] std::optional<T> storedValue(const UserDefaults& defaults, std::string_view key) {
    const std::optional<UserDefaults::Value> value = defaults.value(key);
    return value && std::holds_alternative<T>(*value) ? std::get<T>(*value) : std::optional<T>();
}

} // namespace tavrin
