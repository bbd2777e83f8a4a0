// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Secret.h"

#include <boost/json/conversion.hpp>

#include <optional>
#include <string>

namespace orvel {

/// What the service knows about the account.
struct Profile {
    std::optional<std::string> uid;
    std::optional<std::string> email;
    /// Never empty.
    std::optional<std::string> handle;
};

/// What the keychain keeps, as one JSON text.
struct Session {
    tavrin::Secret refreshToken;
    std::optional<std::string> uid;
    std::optional<std::string> email;
    std::optional<std::string> handle;

    /// What the profile lacks stays as it is.
    void merge(const Profile& profile);
};

void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const Session& session);
// Each throws `tavrin::JSONDecodingError` when a required key is missing or a type is wrong.
Session tag_invoke(const boost::json::value_to_tag<Session>&, const boost::json::value& json);
Profile tag_invoke(const boost::json::value_to_tag<Profile>&, const boost::json::value& json);

} // namespace orvel
