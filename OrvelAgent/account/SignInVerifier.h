// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

/// The secret behind a sign-in's challenge (PKCE, S256): only its owner can use the code that the
/// web site gives out for the challenge.
namespace orvel::SignInVerifier {

inline constexpr std::size_t randomBytes = 32;
/// Of the bytes in Base64url without padding.
inline constexpr std::size_t length = (randomBytes * 8 + 5) / 6;

/// From the system's secure random source.
[[nodiscard]] std::string makeVerifier();
[[nodiscard]] std::string challenge(const std::string& verifier);

} // namespace orvel::SignInVerifier
