// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>

/// The pace of a scan. The agent always uses these values; `orvel-scan` has an option for the
/// pause.
namespace orvel::ScanDefaults {

/// Most rows examined per batch.
inline constexpr std::int64_t batchSize = 500;

/// Pause after each uploaded batch of history, so that a first scan uses little of the machine.
inline constexpr tavrin::Seconds backfillPause(10);

} // namespace orvel::ScanDefaults
