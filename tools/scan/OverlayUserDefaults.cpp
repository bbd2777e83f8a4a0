// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/OverlayUserDefaults.h"

#include <utility>

namespace orvel {

template <typename T>
std::optional<T> OverlayUserDefaults::read(
    std::string_view key,
    std::optional<T> (tavrin::UserDefaults::*fromBase)(std::string_view) const) const {
    {
        const std::lock_guard lock(mutex_);
        const auto entry = values_.find(key);
        if (entry != values_.end()) {
            const T* value = std::get_if<T>(&entry->second);
            return value != nullptr ? std::optional<T>(*value) : std::nullopt;
        }
    }
    return (base_.*fromBase)(key);
}

std::optional<std::string> OverlayUserDefaults::string(std::string_view key) const {
    return read<std::string>(key, &tavrin::UserDefaults::string);
}

std::optional<std::int64_t> OverlayUserDefaults::integer(std::string_view key) const {
    return read<std::int64_t>(key, &tavrin::UserDefaults::integer);
}

std::optional<bool> OverlayUserDefaults::boolean(std::string_view key) const {
    return read<bool>(key, &tavrin::UserDefaults::boolean);
}

std::optional<tavrin::Date> OverlayUserDefaults::date(std::string_view key) const {
    return read<tavrin::Date>(key, &tavrin::UserDefaults::date);
}

void OverlayUserDefaults::setString(std::string_view key, std::string_view value) {
    keep(key, std::string(value));
}

void OverlayUserDefaults::setInteger(std::string_view key, std::int64_t value) {
    keep(key, value);
}

void OverlayUserDefaults::setBoolean(std::string_view key, bool value) {
    keep(key, value);
}

void OverlayUserDefaults::setDate(std::string_view key, tavrin::Date value) {
    keep(key, value);
}

void OverlayUserDefaults::remove(std::string_view key) {
    keep(key, Removed());
}

void OverlayUserDefaults::keep(std::string_view key, Value value) {
    const std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
}

} // namespace orvel
