// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/network/SecretJSON.h"

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/serializer.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_from.hpp>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace orvel {

/// True for a type with `static constexpr bool isSecret = true`: a body or reply that contains
/// secrets.
template <typename Value>
concept HoldsSecrets = requires {
    requires Value::isSecret;
};

/// The keys of a body type whose strings a shown text may repeat, because they are about neither a
/// person nor a session: a `static constexpr` array `publicKeys` of the type.
template <typename Value>
[[nodiscard]] constexpr std::span<const std::string_view> publicKeysOf() {
    if constexpr (requires { Value::publicKeys; }) {
        return Value::publicKeys;
    }
    return {};
}

/// Encodes values as JSON text. Keeps the order in which each type writes its keys. Reuses one
/// buffer for the JSON trees, except for values with secrets: their memory is wiped. Use it on one
/// thread at a time.
class JSONEncoder final {
public:
    template <typename Value>
    [[nodiscard]] std::string encode(const Value& value) {
        if constexpr (HoldsSecrets<Value>) {
            return serializeSecretJSON(boost::json::value_from(value, wipingStorage()));
        }
        boost::json::monotonic_resource resource(buffer_.get(), bufferSize);
        const boost::json::value tree = boost::json::value_from(value, &resource);
        serializer_.reset(&tree);
        // Batches have similar sizes, so start with a little more than the last size.
        std::string text(lastSize_ + lastSize_ / 4 + minimumRoom, '\0');
        std::size_t size = 0;
        while (!serializer_.done()) {
            if (size == text.size()) {
                text.resize(2 * size);
            }
            size += serializer_.read(text.data() + size, text.size() - size).size();
        }
        text.resize(size);
        lastSize_ = size;
        return text;
    }

private:
    // Enough for a usual batch. A larger one uses additional heap memory.
    static constexpr std::size_t bufferSize = std::size_t{2} << 20U;

    static constexpr std::size_t minimumRoom = 256;

    std::unique_ptr<unsigned char[]> buffer_ = // NOLINT(modernize-avoid-c-arrays)
        std::make_unique_for_overwrite<unsigned char[]>(
            bufferSize); // NOLINT(modernize-avoid-c-arrays)
    boost::json::serializer serializer_;
    std::size_t lastSize_ = 0;
};

/// An empty JSON object as the body.
struct Empty {};

inline void tag_invoke(const boost::json::value_from_tag&, boost::json::value& json, const Empty&) {
    json.emplace_object();
}

} // namespace orvel
