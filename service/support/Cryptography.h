// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace orvel::service {

/// The 32 bytes of the hash, in Base64 for URLs without padding: 43 characters.
[[nodiscard]] std::string sha256(std::string_view text);

/// The prefix and 256 random bits in Base64 for URLs. Throws `ServiceError`.
[[nodiscard]] std::string randomToken(std::string_view prefix);

/// Takes a time that does not tell where two texts of the same size differ.
[[nodiscard]] bool equalsInConstantTime(std::string_view left, std::string_view right);

} // namespace orvel::service
