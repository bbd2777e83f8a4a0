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

/// What every reply of the service is wrapped in, whatever its status.
template <typename T>
struct Envelope {
    bool ok = false;
    std::optional<T> data;
    /// For people.
    std::optional<std::string> error;
    /// For programs, for example "session_expired".
    std::optional<std::string> code;
};

/// No value when the bytes are no JSON, lack "ok", or hold a member of the wrong shape: what is not
/// wholly an envelope is none. Deeply nested or huge input fails like any other. The
/// tree leaves nothing behind: some replies carry tokens.
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
        // Whatever is wrong with it, the caller then judges by status and bytes.
        return std::nullopt;
    }
}

} // namespace orvel
