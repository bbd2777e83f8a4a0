// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace orvel::service {

/// What an agent must know of a service.
struct BundleInformation {
    /// Address and port.
    std::string host;
    std::string apiKey;
    std::filesystem::path caFile;

    /// Where updates come from, and the key they are signed with.
    struct Updates {
        std::string feedURL;
        std::string publicKey;
    };
    /// Without them, the agent does not look for any.
    std::optional<Updates> updates = {};
};

/// Writes the information property list of an agent that talks to the service. It appears whole or
/// not at all. Throws `ServiceError`.
void writeBundle(const std::filesystem::path& folder, const BundleInformation& information);

} // namespace orvel::service
