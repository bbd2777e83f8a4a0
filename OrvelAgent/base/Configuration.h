// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace orvel {

class Bundle;

/// The build-time settings, read from the bundle's information property list. Immutable.
class Configuration final {
public:
    explicit Configuration(const Bundle& bundle);

    /// The key's value without white space at its ends; the fallback when there is no such string,
    /// or an empty one, or one with a build variable that was never filled in.
    [[nodiscard]] static std::string
    infoValue(const Bundle& bundle, std::string_view key, std::string_view fallback);

    /// Scheme and host, without a trailing slash.
    [[nodiscard]] const std::string& apiBaseURL() const { return apiBaseURL_; }
    /// Scheme and host, without a trailing slash.
    [[nodiscard]] const std::string& webBaseURL() const { return webBaseURL_; }
    /// The identity provider's base URL for sign-in, with a slash at its end.
    [[nodiscard]] const std::string& identityToolkitURL() const { return identityToolkitURL_; }
    /// The identity provider's whole URL for refreshing tokens.
    [[nodiscard]] const std::string& secureTokenURL() const { return secureTokenURL_; }
    /// The identity provider's key of this application; it is no secret. Empty when there is none.
    [[nodiscard]] const std::string& firebaseAPIKey() const { return firebaseAPIKey_; }
    [[nodiscard]] const std::string& bundleIdentifier() const { return bundleIdentifier_; }
    [[nodiscard]] const std::string& displayName() const { return displayName_; }
    [[nodiscard]] const std::string& shortVersion() const { return shortVersion_; }

private:
    std::string apiBaseURL_;
    std::string webBaseURL_;
    std::string identityToolkitURL_;
    std::string secureTokenURL_;
    std::string firebaseAPIKey_;
    std::string bundleIdentifier_;
    std::string displayName_;
    std::string shortVersion_;
};

} // namespace orvel
