// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace orvel {

/// The abbreviated Git revision that this program was built from. "unknown" if it was not built in
/// a Git repository.
[[nodiscard]] std::string_view sourceRevision();

} // namespace orvel
