// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>
#include <vector>

/// The pace of a scan. The agent always uses these values. In `orvel-scan`, the pauses are the
/// defaults of two options, documented in its manual page.
namespace orvel::ScanDefaults {

/// Most rows examined per batch.
inline constexpr std::int64_t batchSize = 500;

/// Pause after each uploaded batch of history, so that a first scan uses little of the machine.
inline constexpr tavrin::Seconds backfillPause(10);

/// In seconds: the pauses before each retry of an upload.
[[nodiscard]] inline std::vector<double> retryDelays() {
    return {5, 15, 45};
}

} // namespace orvel::ScanDefaults
