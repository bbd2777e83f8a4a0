// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Disables core dumps, which could contain tokens, for this process and the programs it starts.
void forbidCoreDumps();

} // namespace orvel
