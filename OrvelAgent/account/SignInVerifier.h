// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

/// The verifier of a sign-in (PKCE, S256). The code that the web site issues for a challenge is
/// useless without its verifier.
namespace orvel::SignInVerifier {

inline constexpr std::size_t randomBytes = 32;
/// The length of that many bytes in Base64url without padding.
inline constexpr std::size_t length = (randomBytes * 8 + 5) / 6;

/// From the system's random generator. Throws `tavrin::PlatformError` if that fails.
[[nodiscard]] std::string makeVerifier();
[[nodiscard]] std::string challenge(const std::string& verifier);

} // namespace orvel::SignInVerifier
