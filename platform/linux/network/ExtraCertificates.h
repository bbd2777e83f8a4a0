// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <openssl/ssl.h>

#include <filesystem>
#include <memory>
#include <vector>

namespace orvel {

/// Certificates that a session trusts besides the system's. Thread-safe once made.
class ExtraCertificates final {
public:
    /// From PEM files. Throws `tavrin::PlatformError` when one of them cannot be read or holds
    /// none.
    explicit ExtraCertificates(const std::vector<std::filesystem::path>& files);

    /// Has the context trust them. Gives false when it cannot.
    [[nodiscard]] bool addTo(SSL_CTX* context) const;

private:
    struct Release {
        void operator()(X509* certificate) const;
    };

    void append(const std::filesystem::path& file);

    std::vector<std::unique_ptr<X509, Release>> certificates_;
};

} // namespace orvel
