// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

namespace orvel::service {

/// What an agent must know of a service.
struct BundleInformation {
    /// Address and port.
    std::string host;
    std::string apiKey;
    std::filesystem::path caFile;
};

/// Writes the information property list of an agent that talks to the service. It appears whole or
/// not at all. Throws `ServiceError`.
void writeBundle(const std::filesystem::path& folder, const BundleInformation& information);

} // namespace orvel::service
