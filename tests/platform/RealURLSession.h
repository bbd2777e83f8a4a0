// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace orvel::test {

/// This system's URL loading, which trusts the servers of those PEM files besides others.
[[nodiscard]] std::unique_ptr<URLSession>
makeRealURLSession(const std::vector<std::filesystem::path>& extraCertificates);

} // namespace orvel::test
