// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace orvel {

/// The short name of the source revision that this program was built of; "unknown" when it was
/// built outside its repository.
[[nodiscard]] std::string_view sourceRevision();

} // namespace orvel
