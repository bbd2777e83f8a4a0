// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace orvel::service {

/// A certificate authority of the service's own, kept in a directory together with the certificate
/// it issued for "localhost" and 127.0.0.1.
///
/// Both are used again until 30 days before their end, then made anew; so is whatever is missing,
/// damaged or does not fit. The authority can vouch for no other name, so that trusting it is no
/// risk should its key be stolen. Key files are readable by their owner only.
class CertificateAuthority final {
public:
    using Time = std::chrono::system_clock::time_point;

    /// Loads or makes everything. Throws `ServiceError`.
    CertificateAuthority(std::filesystem::path directory, Time now);

    /// The PEM file a client must trust.
    [[nodiscard]] const std::filesystem::path& certificateFile() const { return certificateFile_; }

    /// PEM.
    [[nodiscard]] const std::string& serverCertificate() const { return serverCertificate_; }
    /// PEM.
    [[nodiscard]] const std::string& serverKey() const { return serverKey_; }

private:
    std::filesystem::path certificateFile_;
    std::string serverCertificate_;
    std::string serverKey_;
};

} // namespace orvel::service
