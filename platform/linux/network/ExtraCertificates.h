// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/support/OpenSSL.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace orvel {

/// Certificates that a session trusts in addition to the system's. Thread-safe after construction.
class ExtraCertificates final {
public:
    /// Reads PEM files. Throws `tavrin::PlatformError` when one cannot be read or contains no
    /// certificate.
    explicit ExtraCertificates(const std::vector<std::filesystem::path>& files);

    /// Makes the context trust them. Returns false on failure.
    [[nodiscard]] bool addTo(SSL_CTX* context) const;

private:
    void append(const std::filesystem::path& file);

    std::vector<std::unique_ptr<X509, LazyRelease<&OpenSSL::x509Free>>> certificates_;
};

} // namespace orvel
