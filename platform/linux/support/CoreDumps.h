// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Prevents core dumps of this process and access to its memory by the user's other processes,
/// because it may contain tokens. Started programs are not affected.
void forbidCoreDumps();

} // namespace orvel
