// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>

struct evp_pkey_st;
struct x509_st;

namespace orvel::service {

/// The service's own certificate authority, kept in a directory together with the certificate that
/// it issued for "localhost" and 127.0.0.1.
///
/// Both are reused until 30 days before they expire, then replaced. A missing, damaged or
/// mismatched file is replaced, too. Name constraints limit the authority to the two names, so
/// that trusting it is no risk even if its key is stolen. Only the owner can read the key files.
class CertificateAuthority final {
public:
    using Time = std::chrono::system_clock::time_point;

    /// Loads the files or creates them. Throws `ServiceError`.
    CertificateAuthority(std::filesystem::path directory, Time now);

    /// The PEM file of the certificate that a client must trust.
    [[nodiscard]] const std::filesystem::path& certificateFile() const { return certificateFile_; }

    [[nodiscard]] x509_st* serverCertificate() const { return serverCertificate_.get(); }
    [[nodiscard]] evp_pkey_st* serverKey() const { return serverKey_.get(); }

private:
    std::filesystem::path certificateFile_;
    std::shared_ptr<x509_st> serverCertificate_;
    std::shared_ptr<evp_pkey_st> serverKey_;
};

} // namespace orvel::service
