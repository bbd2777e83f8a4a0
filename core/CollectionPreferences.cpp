// SPDX-License-Identifier: Apache-2.0
#include "core/CollectionPreferences.h"

#include "core/JSON.h"
#include "core/UserDefaultsKeys.h"

#include <boost/json/value.hpp>

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

void tag_invoke(const boost::json::value_from_tag&, boost::json::value& json, CollectionMode mode) {
    json = rawValue(mode);
}

void tag_invoke(const boost::json::value_from_tag&, boost::json::value& json, ThreadScope scope) {
    json = rawValue(scope);
}

CollectionMode
tag_invoke(const boost::json::value_to_tag<CollectionMode>&, const boost::json::value& json) {
    const auto mode =
        json.is_string() ? collectionModeFromRawValue(json.get_string()) : std::nullopt;
    if (!mode) {
        throw JSONDecodingError("This is no collection mode.");
    }
    return *mode;
}

ThreadScope
tag_invoke(const boost::json::value_to_tag<ThreadScope>&, const boost::json::value& json) {
    const auto scope = json.is_string() ? threadScopeFromRawValue(json.get_string()) : std::nullopt;
    if (!scope) {
        throw JSONDecodingError("This is no thread scope.");
    }
    return *scope;
}

CollectionMode CollectionPreferences::mode() const {
    const std::optional<std::string> stored =
        storedValue<std::string>(defaults_, UserDefaultsKeys::modeKey);
    return collectionModeFromRawValue(stored.value_or("")).value_or(defaultMode);
}

void CollectionPreferences::setMode(CollectionMode mode) {
    defaults_.set(UserDefaultsKeys::modeKey, std::string(rawValue(mode)));
}

ThreadScope CollectionPreferences::scope() const {
    const std::optional<std::string> stored =
        storedValue<std::string>(defaults_, UserDefaultsKeys::scopeKey);
    return threadScopeFromRawValue(stored.value_or("")).value_or(defaultScope);
}

void CollectionPreferences::setScope(ThreadScope scope) {
    defaults_.set(UserDefaultsKeys::scopeKey, std::string(rawValue(scope)));
}

} // namespace tavrin
