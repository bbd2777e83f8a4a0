// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/OverlayUserDefaults.h"

#include <utility>

namespace orvel {

std::optional<tavrin::UserDefaults::Value> OverlayUserDefaults::value(std::string_view key) const {
    {
        const std::lock_guard lock(mutex_);
        const auto entry = values_.find(key);
        if (entry != values_.end()) {
            return entry->second;
        }
    }
    return base_.value(key);
}

void OverlayUserDefaults::set(std::string_view key, Value value) {
    const std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
}

void OverlayUserDefaults::remove(std::string_view key) {
    const std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::nullopt);
}

std::unique_ptr<tavrin::Interface> OverlayUserDefaults::tryLock() {
    struct Lock final : Interface {};
    return std::make_unique<Lock>();
}

} // namespace orvel
