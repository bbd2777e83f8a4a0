// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace orvel {

/// In seconds, before each further attempt to upload the same batch. The default of the agent and
/// of `orvel-scan`, whose help and manual page show it.
[[nodiscard]] inline std::vector<double> uploadRetryDelays() {
    return {5, 15, 45};
}

} // namespace orvel
