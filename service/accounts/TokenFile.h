// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

namespace orvel::service {

/// Returns the token in the file. Creates the file with a random token if it is missing, or if
/// another user could have read or written it. Throws `ServiceError`.
[[nodiscard]] std::string loadOrCreateToken(const std::filesystem::path& file);

} // namespace orvel::service
