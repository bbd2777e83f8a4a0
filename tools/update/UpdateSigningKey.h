// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

struct evp_pkey_st;

namespace orvel {

/// The private Ed25519 key that signs updates. Stored as PEM, which other programs can read.
/// Signatures and public keys are Base64.
class UpdateSigningKey final {
public:
    [[nodiscard]] static UpdateSigningKey generate();
    /// Throws `std::runtime_error` if the file contains no such key or other users can read it, and
    /// `tavrin::PlatformError` if it cannot be read.
    [[nodiscard]] static UpdateSigningKey load(const std::filesystem::path& file);

    /// Writes a new file that only the owner can read. Throws `tavrin::PlatformError`, also if the
    /// file exists.
    void save(const std::filesystem::path& file) const;

    [[nodiscard]] std::string publicKey() const;
    [[nodiscard]] std::string sign(std::string_view content) const;

private:
    explicit UpdateSigningKey(evp_pkey_st* key);

    std::shared_ptr<evp_pkey_st> key_;
};

/// The SHA-256 hash in lower-case hexadecimal digits.
[[nodiscard]] std::string sha256(std::string_view content);

/// Whether the signature was made for exactly this content with the key's private half. False for
/// malformed keys and signatures.
[[nodiscard]] bool
isSignedUpdate(std::string_view publicKey, std::string_view signature, std::string_view content);

} // namespace orvel
