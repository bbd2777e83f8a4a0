// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/UserDefaults.h"

#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

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

    /// The keys of all writes and removals since the last call, in order.
    [[nodiscard]] std::vector<std::string> takeChangedKeys() {
        const std::lock_guard lock(mutex_);
        return std::exchange(changedKeys_, {});
    }

    [[nodiscard]] bool contains(std::string_view key) const {
        const std::lock_guard lock(mutex_);
        return values_.find(key) != values_.end();
    }

    [[nodiscard]] std::optional<Value> value(std::string_view key) const override {
        const std::lock_guard lock(mutex_);
        const auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }
    void set(std::string_view key, Value value) override {
        if (onWrite_) {
            onWrite_();
        }
        const std::lock_guard lock(mutex_);
        checkWritable();
        values_.insert_or_assign(std::string(key), std::move(value));
        changedKeys_.emplace_back(key);
    }
    void remove(std::string_view key) override {
        const std::lock_guard lock(mutex_);
        checkWritable();
        values_.erase(std::string(key));
        changedKeys_.emplace_back(key);
    }

    [[nodiscard]] std::unique_ptr<tavrin::Interface> tryLock() override {
        if (!holder_.expired()) {
            return nullptr;
        }
        auto lock = std::make_unique<Lock>();
        holder_ = lock->life;
        return lock;
    }

private:
    struct Lock final : tavrin::Interface {
        std::shared_ptr<int> life = std::make_shared<int>();
    };

    void checkWritable() const {
        if (failsWrites_) {
            throw tavrin::PlatformError::fromErrno(ENOSPC, "Could not write the settings");
        }
    }

    mutable std::mutex mutex_;
    std::map<std::string, Value, std::less<>> values_;
    std::vector<std::string> changedKeys_;
    bool failsWrites_ = false;
    std::weak_ptr<int> holder_;
    std::function<void()> onWrite_;
};

} // namespace orvel::test
