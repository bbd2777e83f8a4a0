// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <variant>

namespace orvel {

/// Reads from other user defaults, which it borrows, and keeps writes in memory.
class OverlayUserDefaults final : public tavrin::UserDefaults {
public:
    explicit OverlayUserDefaults(const tavrin::UserDefaults& base) : base_(base) {}

    [[nodiscard]] std::optional<std::string> string(std::string_view key) const override;
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const override;
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const override;
    [[nodiscard]] std::optional<tavrin::Date> date(std::string_view key) const override;

    void setString(std::string_view key, std::string_view value) override;
    void setInteger(std::string_view key, std::int64_t value) override;
    void setBoolean(std::string_view key, bool value) override;
    void setDate(std::string_view key, tavrin::Date value) override;
    void remove(std::string_view key) override;

private:
    struct Removed {};
    using Value = std::variant<Removed, std::string, std::int64_t, bool, tavrin::Date>;

    template <typename T>
    std::optional<T> read(
        std::string_view key,
        std::optional<T> (tavrin::UserDefaults::*fromBase)(std::string_view) const) const;
    void keep(std::string_view key, Value value);

    const tavrin::UserDefaults& base_;
    mutable std::mutex mutex_;
    std::map<std::string, Value, std::less<>> values_;
};

} // namespace orvel
