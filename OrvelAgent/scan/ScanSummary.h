// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CollectionPreferences.h"
#include "core/Date.h"

#include <QUuid>

#include <cstdint>
#include <optional>
#include <string>

namespace orvel {

/// The result of one scan.
struct ScanSummary {
    QUuid id;
    tavrin::Date startedAt;
    tavrin::Date finishedAt;
    /// Rows examined.
    std::int64_t scanned = 0;
    /// Records produced.
    std::int64_t collected = 0;
    std::int64_t skippedOutOfScope = 0;
    /// Rows kept without text because it could not be decoded.
    std::int64_t skippedUndecodable = 0;
    std::int64_t skippedNotUserContent = 0;
    /// Records sent and accepted.
    std::int64_t uploaded = 0;
    /// The stored watermark at the end of the scan.
    std::int64_t watermark = 0;
    tavrin::CollectionMode mode = tavrin::CollectionMode::MetadataOnly;
    /// Why the scan failed or was skipped. No value on success.
    std::optional<std::string> error;
};

/// The progress of a running scan.
struct ScanProgress {
    std::int64_t scanned = 0;
    std::int64_t uploaded = 0;
    /// The completed part of the history, 0 to 1. No value while new messages are read.
    std::optional<double> backfillFraction;
};

} // namespace orvel
