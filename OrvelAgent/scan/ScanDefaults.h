// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>
#include <vector>

/// The pace of a scan. The agent uses these values as they are; `orvel-scan` has options for the
/// pauses, and its help and its manual page show these values as the defaults.
namespace orvel::ScanDefaults {

/// Most rows examined for one batch.
inline constexpr std::int64_t batchSize = 500;

/// Between two batches of history that were sent, so that a first scan stays unnoticed.
inline constexpr tavrin::Seconds backfillPause(10);

/// In seconds, before each further attempt to send the same batch.
[[nodiscard]] inline std::vector<double> retryDelays() {
    return {5, 15, 45};
}

} // namespace orvel::ScanDefaults
