// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Secret.h"

#include <boost/json/conversion.hpp>

#include <optional>
#include <string>

namespace orvel {

/// The service's data about the account.
struct Profile {
    /// Where the service has it, for `GET`.
    static constexpr const char* path = "/api/v1/profile";

    std::optional<std::string> uid;
    std::optional<std::string> email;
    /// No value instead of an empty text.
    std::optional<std::string> handle;
};

/// Identifies the account: the first of these that exists. Empty without any.
[[nodiscard]] std::string accountOf(
    const std::optional<std::string>& uid,
    const std::optional<std::string>& email,
    const std::optional<std::string>& handle);

/// Stored in the keychain as one JSON text.
struct Session {
    tavrin::Secret refreshToken;
    std::optional<std::string> uid;
    std::optional<std::string> email;
    std::optional<std::string> handle;

    /// Takes the fields that the profile has and keeps the others.
    void merge(const Profile& profile);
};

void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const Session& session);
// The next two throw `tavrin::JSONDecodingError` if a required key is missing or a type is wrong.
Session tag_invoke(const boost::json::value_to_tag<Session>&, const boost::json::value& json);
Profile tag_invoke(const boost::json::value_to_tag<Profile>&, const boost::json::value& json);

} // namespace orvel
