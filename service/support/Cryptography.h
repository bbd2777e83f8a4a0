// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace orvel::service {

/// The hash as Base64 for URLs, without padding: 43 characters.
[[nodiscard]] std::string sha256(std::string_view text);
/// Whether the text has the form of such a hash.
[[nodiscard]] bool isSHA256(std::string_view text);

/// The prefix and 256 random bits as Base64 for URLs. Throws `ServiceError`.
[[nodiscard]] std::string randomToken(std::string_view prefix);

/// The run time does not depend on where two texts of the same size differ.
[[nodiscard]] bool equalsInConstantTime(std::string_view left, std::string_view right);

} // namespace orvel::service
