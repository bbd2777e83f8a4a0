// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/support/Cryptography.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvel::service {

/// The current time. May be called from any thread.
using Now = std::function<std::chrono::system_clock::time_point()>;

/// Random tokens, each valid for a limited time, that stand for a value. They are kept in
/// memory only, as hashes. A token beyond `limit` replaces the one that would expire first.
/// Thread-safe.
template <typename Value>
class OneTimeTokens final {
public:
    static constexpr std::size_t limit = 1000;

    OneTimeTokens(std::string prefix, std::chrono::seconds lifetime, Now now)
        : prefix_(std::move(prefix)), lifetime_(lifetime), now_(std::move(now)) {}

    [[nodiscard]] std::string mint(Value value) {
        auto token = randomToken(prefix_);
        const auto now = now_();
        const std::lock_guard lock(mutex_);
        std::erase_if(entries_, [now](const auto& entry) { return entry.second.end <= now; });
        if (entries_.size() >= limit) {
            entries_.erase(std::ranges::min_element(
                entries_, {}, [](const auto& entry) { return entry.second.end; }));
        }
        entries_.emplace(sha256(token), Entry{std::move(value), now + lifetime_});
        return token;
    }

    /// Returns the value and invalidates the token. No value if the token has expired, was used or
    /// is unknown.
    [[nodiscard]] std::optional<Value> take(std::string_view token) {
        const auto now = now_();
        const std::lock_guard lock(mutex_);
        auto entry = entries_.extract(sha256(token));
        return entry && now < entry.mapped().end ? std::optional(std::move(entry.mapped().value))
                                                 : std::nullopt;
    }

    /// The same without invalidating the token.
    [[nodiscard]] bool isValid(std::string_view token) const {
        const auto now = now_();
        const std::lock_guard lock(mutex_);
        const auto entry = entries_.find(sha256(token));
        return entry != entries_.end() && now < entry->second.end;
    }

private:
    struct Entry {
        Value value;
        std::chrono::system_clock::time_point end;
    };

    const std::string prefix_;
    const std::chrono::seconds lifetime_;
    const Now now_;
    mutable std::mutex mutex_;
    std::map<std::string, Entry, std::less<>> entries_;
};

} // namespace orvel::service
