// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace orvel {

/// Reads from other user defaults, which it borrows, and keeps writes in memory.
class OverlayUserDefaults final : public tavrin::UserDefaults {
public:
    explicit OverlayUserDefaults(const tavrin::UserDefaults& base) : base_(base) {}

    [[nodiscard]] std::optional<Value> value(std::string_view key) const override;
    void set(std::string_view key, Value value) override;
    void remove(std::string_view key) override;
    /// Always succeeds: nothing is stored.
    [[nodiscard]] std::unique_ptr<Interface> tryLock() override;

private:
    const tavrin::UserDefaults& base_;
    mutable std::mutex mutex_;
    /// A key without a value was removed.
    std::map<std::string, std::optional<Value>, std::less<>> values_;
};

} // namespace orvel
