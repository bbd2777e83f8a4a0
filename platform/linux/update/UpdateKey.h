// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace orvel {

/// An Ed25519 signature.
using UpdateSignature = std::array<std::uint8_t, 64>;

/// No value unless the text is exactly the Base64 of 64 bytes.
[[nodiscard]] std::optional<UpdateSignature> updateSignatureFromBase64(std::string_view text);

/// A SHA-256 hash.
using UpdateHash = std::array<std::uint8_t, 32>;

/// No value unless the text is exactly 64 lower-case hexadecimal digits.
[[nodiscard]] std::optional<UpdateHash> updateHashFromHex(std::string_view text);

/// Throws `tavrin::PlatformError` when OpenSSL cannot be loaded.
[[nodiscard]] UpdateHash updateHash(std::span<const std::uint8_t> content);

/// What the file of an update must agree with.
struct UpdateProof {
    UpdateSignature signature;
    UpdateHash hash;

    bool operator==(const UpdateProof&) const = default;
};

/// The public key that verifies updates.
class UpdateKey final {
public:
    /// No value unless the text is exactly the Base64 of 32 bytes.
    [[nodiscard]] static std::optional<UpdateKey> fromBase64(std::string_view text);

    /// Whether the signature is valid for the content. Throws `tavrin::PlatformError` when OpenSSL
    /// cannot be loaded.
    [[nodiscard]] bool
    verifies(const UpdateSignature& signature, std::span<const std::uint8_t> content) const;

private:
    std::array<std::uint8_t, 32> bytes_{};
};

} // namespace orvel
