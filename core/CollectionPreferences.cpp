// SPDX-License-Identifier: Apache-2.0
#include "core/CollectionPreferences.h"

#include <string>

namespace tavrin {

std::string_view rawValue(CollectionMode mode) {
    return mode == CollectionMode::MetadataOnly ? "metadataOnly" : "withBodies";
}

std::string_view rawValue(ThreadScope scope) {
    return scope == ThreadScope::KnownContactsOnly ? "knownContactsOnly" : "allThreads";
}

std::optional<CollectionMode> collectionModeFromRawValue(std::string_view raw) {
    for (const auto mode : {CollectionMode::MetadataOnly, CollectionMode::WithBodies}) {
        if (raw == rawValue(mode)) {
            return mode;
        }
    }
    return std::nullopt;
}

std::optional<ThreadScope> threadScopeFromRawValue(std::string_view raw) {
    for (const auto scope : {ThreadScope::KnownContactsOnly, ThreadScope::AllThreads}) {
        if (raw == rawValue(scope)) {
            return scope;
        }
    }
    return std::nullopt;
}

CollectionMode CollectionPreferences::mode() const {
    const std::optional<std::string> stored = defaults_.string(modeKey);
    return collectionModeFromRawValue(stored.value_or("")).value_or(defaultMode);
}

void CollectionPreferences::setMode(CollectionMode mode) {
    defaults_.setString(modeKey, rawValue(mode));
}

ThreadScope CollectionPreferences::scope() const {
    const std::optional<std::string> stored = defaults_.string(scopeKey);
    return threadScopeFromRawValue(stored.value_or("")).value_or(defaultScope);
}

void CollectionPreferences::setScope(ThreadScope scope) {
    defaults_.setString(scopeKey, rawValue(scope));
}

} // namespace tavrin
