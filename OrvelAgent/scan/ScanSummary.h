// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CollectionPreferences.h"
#include "core/Date.h"

#include <QUuid>

#include <cstdint>
#include <optional>
#include <string>

namespace orvel {

/// What one scan did.
struct ScanSummary {
    QUuid id;
    tavrin::Date startedAt;
    tavrin::Date finishedAt;
    /// Rows examined.
    std::int64_t scanned = 0;
    /// Records produced.
    std::int64_t collected = 0;
    std::int64_t skippedOutOfScope = 0;
    /// Rows kept without text because none could be extracted.
    std::int64_t skippedUndecodable = 0;
    std::int64_t skippedNotUserContent = 0;
    /// Records sent and accepted.
    std::int64_t uploaded = 0;
    /// As stored at the end.
    std::int64_t watermark = 0;
    tavrin::CollectionMode mode = tavrin::CollectionMode::MetadataOnly;
    /// Why the scan failed or was skipped; absent on success.
    std::optional<std::string> error;
};

/// How far a running scan has come.
struct ScanProgress {
    std::int64_t scanned = 0;
    std::int64_t uploaded = 0;
    /// Done part of the walk through the row ids, 0 to 1, while history is walked; absent while
    /// new messages are read, whose number is not known.
    std::optional<double> backfillFraction;
};

} // namespace orvel
