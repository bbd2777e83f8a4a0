// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace orvel::test {

/// Also trusts the certificates in these PEM files.
[[nodiscard]] std::unique_ptr<URLSession>
makeRealURLSession(const std::vector<std::filesystem::path>& extraCertificates);

} // namespace orvel::test
