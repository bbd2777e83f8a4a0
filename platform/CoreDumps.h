// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Prevents core dumps of this process, which could contain tokens, and of the programs that it
/// starts.
void forbidCoreDumps();

} // namespace orvel
