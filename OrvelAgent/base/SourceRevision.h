// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace orvel {

/// The short revision that this program was built from, or "unknown" if it was built outside its
/// repository.
[[nodiscard]] std::string_view sourceRevision();

} // namespace orvel
