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

    /// The trimmed value of the key. Returns the fallback if the value is missing, is empty or
    /// contains a build variable that was not replaced.
    [[nodiscard]] static std::string
    infoValue(const Bundle& bundle, std::string_view key, std::string_view fallback);

    /// Scheme and host, without a trailing slash.
    [[nodiscard]] const std::string& apiBaseURL() const { return apiBaseURL_; }
    /// Scheme and host, without a trailing slash.
    [[nodiscard]] const std::string& webBaseURL() const { return webBaseURL_; }
    /// The identity provider's base URL for sign-in, with a trailing slash.
    [[nodiscard]] const std::string& identityToolkitURL() const { return identityToolkitURL_; }
    /// The identity provider's full URL for refreshing tokens.
    [[nodiscard]] const std::string& secureTokenURL() const { return secureTokenURL_; }
    /// The identity provider's key for this application. Not a secret. Empty if not configured.
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
