// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/network/SecretJSON.h"
#include "core/JSON.h"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_to.hpp>

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace orvel {

/// The wrapper of every reply of the service, for every HTTP status.
template <typename T>
struct Envelope {
    bool ok = false;
    std::optional<T> data;
    /// An error text for the user.
    std::optional<std::string> error;
    /// An error code, for example "session_expired".
    std::optional<std::string> code;
};

/// Returns no value if the bytes are not JSON, "ok" is missing, or a member has the wrong type.
/// Also for too deeply nested input. Wipes its memory, because some replies contain tokens.
template <typename T>
[[nodiscard]] std::optional<Envelope<T>> decodeEnvelope(std::string_view bytes) {
    try {
        const boost::json::value json = parseSecretJSON(bytes);
        const boost::json::object& object = tavrin::asObject(json);
        Envelope<T> envelope;
        envelope.ok = tavrin::booleanAt(object, "ok");
        envelope.error = tavrin::optionalStringAt(object, "error");
        envelope.code = tavrin::optionalStringAt(object, "code");
        const boost::json::value* data = object.if_contains("data");
        if (data != nullptr && !data->is_null()) {
            envelope.data = boost::json::value_to<T>(*data);
        }
        return envelope;
    } catch (const std::exception&) {
        // The caller then uses the status and the raw bytes.
        return std::nullopt;
    }
}

} // namespace orvel
