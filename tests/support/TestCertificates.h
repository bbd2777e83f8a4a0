// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <memory>
#include <string>

struct evp_pkey_st;
struct x509_st;

namespace orvel::test {

struct CertificateWithKey {
    std::shared_ptr<x509_st> certificate;
    std::shared_ptr<evp_pkey_st> key;
};

/// Issues certificates for test servers.
class CertificateAuthority final {
public:
    CertificateAuthority();

    /// In PEM.
    [[nodiscard]] std::string certificate() const;

    /// Issues a certificate for the names, in OpenSSL's form such as "IP:127.0.0.1,DNS:localhost".
    /// The validity is relative to now.
    [[nodiscard]] CertificateWithKey issue(
        const std::string& names,
        std::chrono::hours from = std::chrono::hours(-24),
        std::chrono::hours to = std::chrono::hours(24)) const;

private:
    CertificateWithKey own_;
};

} // namespace orvel::test
