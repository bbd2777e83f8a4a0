// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/MessageRecord.h"
#include "service/support/Database.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace orvel::service {

/// The received records, in one SQLite file that only the owner can read.
///
/// Each record is stored once, as it first arrived. Thread-safe. Every failure is a `ServiceError`.
class RecordStore final {
public:
    struct Item {
        std::string guid;
        /// The record as received.
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

    /// Creates the file if it is missing.
    explicit RecordStore(const std::filesystem::path& file);

    /// Stores the whole batch or nothing, durably on return. Returns the number of new records.
    std::int64_t add(const Batch& batch);

    void addDiagnostics(const std::string& client, const std::vector<std::string>& lines);

    [[nodiscard]] Totals totals() const;
    /// Newest first.
    [[nodiscard]] std::vector<ReceivedBatch> latestBatches(std::size_t limit) const;
    /// Newest first.
    [[nodiscard]] std::vector<tavrin::MessageRecord> latestRecords(std::size_t limit) const;

private:
    Database database_;
};

} // namespace orvel::service
