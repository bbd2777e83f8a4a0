// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/VersionHistory.h"

namespace orvel {

class Bundle;

/// The history in the bundle's change log; without releases when that is missing, cannot be read
/// or is not UTF-8.
[[nodiscard]] tavrin::VersionHistory loadVersionHistory(const Bundle& bundle);

} // namespace orvel
