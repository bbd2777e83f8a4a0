// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Keeps the memory of this process, which may hold tokens, out of core dumps. The programs it
/// starts inherit that.
void forbidCoreDumps();

} // namespace orvel
