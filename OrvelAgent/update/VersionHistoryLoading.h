// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/VersionHistory.h"

namespace orvel {

class Bundle;

/// Without releases if the change log is missing, unreadable or not UTF-8.
[[nodiscard]] tavrin::VersionHistory loadVersionHistory(const Bundle& bundle);

} // namespace orvel
