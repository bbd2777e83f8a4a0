// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace orvel::service {

/// What an agent needs to reach a service.
struct BundleInformation {
    /// Address and port.
    std::string host;
    std::string apiKey;
    std::filesystem::path caFile;

    /// The update feed, and the public key of its signatures.
    struct Updates {
        std::string feedURL;
        std::string publicKey;
    };
    /// Without a value the agent does not look for updates.
    std::optional<Updates> updates = {};
};

/// Writes the information property list of an agent that talks to the service. The file is
/// replaced atomically. Throws `ServiceError`.
void writeBundle(const std::filesystem::path& folder, const BundleInformation& information);

} // namespace orvel::service
