// SPDX-License-Identifier: Apache-2.0
#include "service/Bundle.h"

#include "service/endpoints/Page.h"
#include "service/support/PrivateFile.h"

#include <string_view>
#include <utility>
#include <vector>

namespace orvel::service {

void writeBundle(const std::filesystem::path& folder, const BundleInformation& information) {
    const auto url = "https://" + information.host;
    std::vector<std::pair<std::string_view, std::string>> items{
        // An identifier per service: the agent keeps its session under it, and a session is only
        // valid with the service that issued it.
        {"CFBundleIdentifier", ORVEL_BUNDLE_IDENTIFIER ".LocalService"},
        {"CFBundleDisplayName", ORVEL_DISPLAY_NAME},
        {"CFBundleShortVersionString", ORVEL_VERSION},
        {"CFBundleVersion", ORVEL_VERSION},
        {"API_HOST", information.host},
        {"WEB_HOST", information.host},
        {"FIREBASE_API_KEY", information.apiKey},
        {"IDENTITY_TOOLKIT_URL", url + "/identity/v1/"},
        {"SECURE_TOKEN_URL", url + "/identity/v1/token"},
        {"TLS_EXTRA_CA", std::filesystem::absolute(information.caFile).string()},
    };
    if (information.updates) {
        items.emplace_back("SUFeedURL", information.updates->feedURL);
        items.emplace_back("SUPublicEDKey", information.updates->publicKey);
    }
    std::string list =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
    for (const auto& [key, value] : items) {
        list.append("    <key>").append(key).append("</key>\n    <string>");
        list.append(escaped(value)).append("</string>\n");
    }
    list += "</dict>\n</plist>\n";
    makePrivateDirectory(folder);
    replacePrivateFile(folder / "Info.plist", list);
}

} // namespace orvel::service
