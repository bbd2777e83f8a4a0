// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/MessageRecord.h"
#include "service/support/Database.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace orvel::service {

/// What the service keeps: one SQLite file, readable by its owner only.
///
/// A record is kept once, whatever number of batches bring it; the first one stays. Usable from
/// several threads. Everything fails with `ServiceError`.
class RecordStore final {
public:
    struct Item {
        std::string guid;
        /// The record as it was received.
        std::string json;
    };
    struct Batch {
        std::string client;
        std::int64_t watermark = 0;
        std::vector<Item> items;
    };
    struct ReceivedBatch {
        std::string receivedAt;
        std::string client;
        std::int64_t watermark = 0;
        std::int64_t records = 0;
        std::int64_t newRecords = 0;
    };
    struct Totals {
        std::int64_t records = 0;
        std::int64_t batches = 0;
        std::int64_t diagnosticLines = 0;
    };

    /// Makes the file when there is none.
    explicit RecordStore(const std::filesystem::path& file);

    /// Keeps the whole batch or nothing; on return it is on disk. Gives the number of records that
    /// were not known.
    std::int64_t add(const Batch& batch);

    void addDiagnostics(const std::string& client, const std::vector<std::string>& lines);

    [[nodiscard]] Totals totals() const;
    /// Newest first.
    [[nodiscard]] std::vector<ReceivedBatch> latestBatches(std::size_t limit) const;
    /// Newest first.
    [[nodiscard]] std::vector<tavrin::MessageRecord> latestRecords(std::size_t limit) const;

private:
    mutable std::mutex mutex_;
    Database database_;
};

} // namespace orvel::service
