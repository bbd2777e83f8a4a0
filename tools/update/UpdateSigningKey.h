// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

struct evp_pkey_st;

namespace orvel {

/// The private Ed25519 key of whoever publishes updates. Kept as PEM, so that other programs read
/// it, too. Signatures and public keys are Base64.
class UpdateSigningKey final {
public:
    [[nodiscard]] static UpdateSigningKey generate();
    /// Throws `std::runtime_error` when the file has no such key, or when others than its owner can
    /// read it, and `tavrin::PlatformError` when it cannot be read.
    [[nodiscard]] static UpdateSigningKey load(const std::filesystem::path& file);

    /// Into a new file, for its owner only. Throws `tavrin::PlatformError`, also when there is one.
    void save(const std::filesystem::path& file) const;

    [[nodiscard]] std::string publicKey() const;
    [[nodiscard]] std::string sign(std::string_view content) const;

private:
    explicit UpdateSigningKey(evp_pkey_st* key);

    std::shared_ptr<evp_pkey_st> key_;
};

/// Whether that public key's owner signed exactly that; false for garbled keys and signatures.
[[nodiscard]] bool
isSignedUpdate(std::string_view publicKey, std::string_view signature, std::string_view content);

} // namespace orvel
