// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/network/APIError.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanSummary.h"
#include "core/CancellationToken.h"
#include "platform/Clock.h"

#include <QCoroTask>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace orvel {

/// Uploads the batches of one scan. A usual batch is one request.
///
/// A batch that is too large for one request is sent in several, in the order of its records, and
/// so is a batch that the service refuses as too large. A message that is refused even alone is
/// sent without its text, so that one large text does not block the messages after it.
///
/// Main thread. Measures and encodes on the worker. Must not be destroyed while `upload` runs.
class BatchUploader final {
public:
    /// Borrows the clock, the worker and the summary, in which it counts the accepted records.
    BatchUploader(
        IngestClient ingest,
        Clock& clock,
        Worker& worker,
        Logger log,
        std::vector<double> retryDelays,
        tavrin::CancellationToken cancellation,
        ScanSummary& summary);
    BatchUploader(const BatchUploader&) = delete;
    BatchUploader& operator=(const BatchUploader&) = delete;

    /// Returns after the service has accepted all records. `watermark` is the highest row id of the
    /// batch. Throws the error of the request that failed for good, `tavrin::TaskCancelled` if
    /// cancelled.
    QCoro::Task<> upload(IngestClient::Records records, std::int64_t watermark);

private:
    /// Consecutive records of a batch.
    struct Part {
        std::size_t first = 0;
        std::size_t end = 0;
        /// Of the records' JSON.
        std::size_t bytes = 0;

        [[nodiscard]] std::size_t count() const { return end - first; }
    };

    using SharedRecords = std::shared_ptr<const IngestClient::Records>;

    /// Takes as many records as one request of that size can hold, and at least one.
    static Part
    nextPart(const std::vector<std::size_t>& sizes, std::size_t first, std::size_t mostBytes);

    /// For each record, the size of its JSON.
    QCoro::Task<std::vector<std::size_t>> measure(SharedRecords records);
    /// Returns the error if the service refuses the request as too large, and no value if it
    /// accepts it.
    QCoro::Task<std::optional<APIError>> send(SharedRecords records, std::int64_t watermark);
    /// Repeats the request after transient failures.
    QCoro::Task<IngestClient::Ack> sendWithRetries(SharedRecords records, std::int64_t watermark);

    const IngestClient ingest_;
    Clock& clock_;
    Worker& worker_;
    const Logger log_;
    const std::vector<double> retryDelays_;
    const tavrin::CancellationToken cancellation_;
    ScanSummary& summary_;
};

} // namespace orvel
