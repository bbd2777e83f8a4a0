// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Configuration.h"

#include "OrvelAgent/base/Deployment.h"
#include "core/Text.h"
#include "platform/Bundle.h"

namespace orvel {

Configuration::Configuration(const Bundle& bundle)
    : apiBaseURL_("https://" + infoValue(bundle, "API_HOST", Deployment::apiHost)),
      webBaseURL_("https://" + infoValue(bundle, "WEB_HOST", Deployment::webHost)),
      identityToolkitURL_(
          infoValue(bundle, "IDENTITY_TOOLKIT_URL", Deployment::identityToolkitURL)),
      secureTokenURL_(infoValue(bundle, "SECURE_TOKEN_URL", Deployment::secureTokenURL)),
      firebaseAPIKey_(infoValue(bundle, "FIREBASE_API_KEY", "")),
      bundleIdentifier_(bundle.identifier()),
      displayName_(infoValue(bundle, "CFBundleDisplayName", Deployment::displayName)),
      shortVersion_(infoValue(bundle, "CFBundleShortVersionString", "0.0.0")) {}

std::string
Configuration::infoValue(const Bundle& bundle, std::string_view key, std::string_view fallback) {
    if (const auto value = bundle.infoString(key)) {
        const std::string_view text = tavrin::trimmed(*value);
        if (!text.empty() && text.find("$(") == std::string_view::npos) {
            return std::string(text);
        }
    }
    return std::string(fallback);
}

} // namespace orvel
