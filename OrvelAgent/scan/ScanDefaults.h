// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstddef>
#include <cstdint>

/// The pace of a scan. The agent always uses these values; `orvel-scan` has an option for the
/// pause.
namespace orvel::ScanDefaults {

/// Most rows examined per batch.
inline constexpr std::int64_t batchSize = 500;

/// Most bytes of the records' JSON in one request. A batch of ordinary messages is far smaller, so
/// it is one request; only long texts reach it. Without this limit, the request would grow with the
/// texts of a single sender until no service takes it. A message that is larger is sent alone.
inline constexpr std::size_t requestSize = std::size_t{4} << 20U;

/// Pause after each uploaded batch of history, so that a first scan uses little of the machine.
inline constexpr tavrin::Seconds backfillPause(10);

} // namespace orvel::ScanDefaults
