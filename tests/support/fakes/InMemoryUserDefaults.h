// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/UserDefaults.h"

#include <cerrno>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <variant>

namespace orvel::test {

/// User defaults in memory. Dates are stored exactly.
class InMemoryUserDefaults final : public tavrin::UserDefaults {
public:
    /// Whether setters and `remove()` fail without changing anything.
    void setFailsWrites(bool failsWrites) {
        const std::lock_guard lock(mutex_);
        failsWrites_ = failsWrites;
    }

    /// Called before every write, on its thread.
    void setOnWrite(std::function<void()> onWrite) { onWrite_ = std::move(onWrite); }

    [[nodiscard]] bool contains(std::string_view key) const {
        const std::lock_guard lock(mutex_);
        return values_.find(key) != values_.end();
    }

    [[nodiscard]] std::optional<std::string> string(std::string_view key) const override {
        return value<std::string>(key);
    }
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const override {
        return value<std::int64_t>(key);
    }
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const override {
        return value<bool>(key);
    }
    [[nodiscard]] std::optional<tavrin::Date> date(std::string_view key) const override {
        return value<tavrin::Date>(key);
    }

    void setString(std::string_view key, std::string_view value) override {
        set(key, std::string(value));
    }
    void setInteger(std::string_view key, std::int64_t value) override { set(key, value); }
    void setBoolean(std::string_view key, bool value) override { set(key, value); }
    void setDate(std::string_view key, tavrin::Date value) override { set(key, value); }
    void remove(std::string_view key) override {
        const std::lock_guard lock(mutex_);
        checkWritable();
        values_.erase(std::string(key));
    }

private:
    using Value = std::variant<std::string, std::int64_t, bool, tavrin::Date>;

    template <typename T>
    std::optional<T> value(std::string_view key) const {
        const std::lock_guard lock(mutex_);
        const auto found = values_.find(key);
        const T* value = found == values_.end() ? nullptr : std::get_if<T>(&found->second);
        return value == nullptr ? std::nullopt : std::optional(*value);
    }

    void set(std::string_view key, Value value) {
        if (onWrite_) {
            onWrite_();
        }
        const std::lock_guard lock(mutex_);
        checkWritable();
        values_.insert_or_assign(std::string(key), std::move(value));
    }

    void checkWritable() const {
        if (failsWrites_) {
            throw tavrin::PlatformError::fromErrno(ENOSPC, "Could not write the settings");
        }
    }

    mutable std::mutex mutex_;
    std::map<std::string, Value, std::less<>> values_;
    bool failsWrites_ = false;
    std::function<void()> onWrite_;
};

} // namespace orvel::test
