// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Keeps the memory of this process, which may hold tokens, out of core dumps and from the user's
/// other processes. The programs it starts are not affected.
void forbidCoreDumps();

} // namespace orvel
