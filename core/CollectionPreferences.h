// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#include <boost/json/conversion.hpp>

#include <optional>
#include <string_view>

namespace tavrin {

/// How much of a message is read and sent.
enum class CollectionMode {
    MetadataOnly, ///< timing and participants only; no text is read
    WithBodies,   ///< also the text, where it can be obtained
};

/// Which conversations are read and sent.
enum class ThreadScope {
    KnownContactsOnly, ///< threads with at least one participant known to the assistant
    AllThreads,
};

/// The stable name of a case, as stored and as sent: "metadataOnly", "withBodies".
[[nodiscard]] std::string_view rawValue(CollectionMode mode);
/// The stable name of a case, as stored and as sent: "knownContactsOnly", "allThreads".
[[nodiscard]] std::string_view rawValue(ThreadScope scope);

/// The case of exactly that name, or no value.
[[nodiscard]] std::optional<CollectionMode> collectionModeFromRawValue(std::string_view rawValue);
/// The case of exactly that name, or no value.
[[nodiscard]] std::optional<ThreadScope> threadScopeFromRawValue(std::string_view rawValue);

// In JSON, both are their raw values. Decoding throws `JSONDecodingError` for any other value.
void tag_invoke(const boost::json::value_from_tag&, boost::json::value& json, CollectionMode mode);
void tag_invoke(const boost::json::value_from_tag&, boost::json::value& json, ThreadScope scope);
CollectionMode
tag_invoke(const boost::json::value_to_tag<CollectionMode>&, const boost::json::value& json);
ThreadScope
tag_invoke(const boost::json::value_to_tag<ThreadScope>&, const boost::json::value& json);

/// The user's choice of mode and scope, stored in the user defaults. Every read goes to the store;
/// nothing is cached. The store must outlive the object.
class CollectionPreferences final {
public:
    static constexpr CollectionMode defaultMode = CollectionMode::WithBodies;
    static constexpr ThreadScope defaultScope = ThreadScope::KnownContactsOnly;

    explicit CollectionPreferences(UserDefaults& defaults) : defaults_(defaults) {}

    /// An unrecognized stored mode falls back to `WithBodies`.
    [[nodiscard]] CollectionMode mode() const;
    void setMode(CollectionMode mode);

    /// An unrecognized stored scope falls back to `KnownContactsOnly`, so that a damaged value
    /// never increases what is sent.
    [[nodiscard]] ThreadScope scope() const;
    void setScope(ThreadScope scope);

private:
    UserDefaults& defaults_;
};

} // namespace tavrin
