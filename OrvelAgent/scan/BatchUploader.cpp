// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/BatchUploader.h"

#include "OrvelAgent/base/Sleep.h"
#include "OrvelAgent/network/JSONCoding.h"
#include "OrvelAgent/network/TokenUnavailable.h"
#include "OrvelAgent/scan/ScanDefaults.h"
#include "core/Errors.h"
#include "core/Retrying.h"
#include "core/TransientFailure.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orvel {

namespace {

using Records = IngestClient::Records;

constexpr int payloadTooLarge = 413;
constexpr auto mostRecords = static_cast<std::size_t>(ScanDefaults::batchSize);

/// Judges an error reply by its HTTP status and any other error by its type.
bool isWorthRetrying(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const APIError& refusal) {
        return tavrin::TransientFailure::isTransient(refusal.status());
    } catch (const TokenUnavailable&) {
        return true;
    } catch (...) {
        return tavrin::TransientFailure::isTransient(error);
    }
}

std::shared_ptr<const Records> copyOf(const Records& records, std::size_t first, std::size_t end) {
    const auto at = [&records](std::size_t index) {
        return records.begin() + static_cast<std::ptrdiff_t>(index);
    };
    return std::make_shared<const Records>(at(first), at(end));
}

std::int64_t highestRowID(const Records& records) {
    const auto highest =
        std::max_element(records.begin(), records.end(), [](const auto& one, const auto& other) {
            return one.rowID < other.rowID;
        });
    return highest->rowID;
}

} // namespace

BatchUploader::BatchUploader(
    IngestClient ingest,
    Clock& clock,
    Worker& worker,
    Logger log,
    std::vector<double> retryDelays,
    tavrin::CancellationToken cancellation,
    ScanSummary& summary)
    : ingest_(std::move(ingest)),
      clock_(clock),
      worker_(worker),
      log_(std::move(log)),
      retryDelays_(std::move(retryDelays)),
      cancellation_(std::move(cancellation)),
      summary_(summary) {}

QCoro::Task<> BatchUploader::upload(IngestClient::Records records, std::int64_t watermark) {
    if (records.empty()) {
        co_return;
    }
    const auto all = std::make_shared<const Records>(std::move(records));
    const std::vector<std::size_t> sizes = co_await measure(all);
    std::size_t mostBytes = ScanDefaults::requestSize;
    std::size_t sent = 0;
    while (sent < all->size()) {
        const Part part = nextPart(sizes, sent, mostBytes);
        const SharedRecords request =
            part.count() == all->size() ? all : copyOf(*all, part.first, part.end);
        // Before its last request, the batch is not complete.
        const std::int64_t highest = part.end == all->size() ? watermark : highestRowID(*request);
        std::optional<APIError> refusal = co_await send(request, highest);
        if (refusal && part.count() > 1) {
            log_.log(
                "the service refused {} messages as too large; sending them in smaller requests",
                part.count());
            mostBytes = part.bytes / 2;
            continue;
        }
        if (refusal && request->front().body) {
            log_.error(
                "the service refused a message as too large; sending it without its text (row {})",
                request->front().rowID);
            const auto withoutText =
                std::make_shared<const Records>(1, request->front().withoutBody());
            refusal = co_await send(withoutText, highest);
        }
        if (refusal) {
            log_.error(
                "the service refuses a message as too large even without a text (row {})",
                request->front().rowID);
            throw APIError(*refusal);
        }
        sent = part.end;
    }
}

BatchUploader::Part BatchUploader::nextPart(
    const std::vector<std::size_t>& sizes, std::size_t first, std::size_t mostBytes) {
    Part part{first, first + 1, sizes[first]};
    while (part.end < sizes.size() && part.count() < mostRecords &&
           part.bytes + sizes[part.end] <= mostBytes) {
        part.bytes += sizes[part.end];
        ++part.end;
    }
    return part;
}

QCoro::Task<std::vector<std::size_t>> BatchUploader::measure(SharedRecords records) {
    auto encode = [records = std::move(records)] {
        JSONEncoder encoder;
        std::vector<std::size_t> sizes;
        sizes.reserve(records->size());
        for (const tavrin::MessageRecord& record : *records) {
            sizes.push_back(encoder.encode(record).size());
        }
        return sizes;
    };
    co_return co_await worker_.run(std::move(encode));
}

QCoro::Task<std::optional<APIError>>
BatchUploader::send(SharedRecords records, std::int64_t watermark) {
    const auto count = static_cast<std::int64_t>(records->size());
    IngestClient::Ack ack;
    std::optional<APIError> refusal;
    try {
        ack = co_await sendWithRetries(std::move(records), watermark);
    } catch (const APIError& error) {
        if (error.status() != payloadTooLarge) {
            throw;
        }
        refusal = error;
    }
    if (refusal) {
        co_return refusal;
    }
    log_.info(
        "batch accepted: {} messages, {} contacts touched, {} with unknown counterparties",
        ack.accepted,
        ack.contactsTouched.value_or(0),
        ack.unknownCounterparty.value_or(0));
    if (ack.accepted < count) {
        log_.error("the service accepted only {} of {} messages of a batch", ack.accepted, count);
    }
    summary_.uploaded += count;
    co_return std::nullopt;
}

QCoro::Task<IngestClient::Ack>
BatchUploader::sendWithRetries(SharedRecords records, std::int64_t watermark) {
    // These lambdas are not coroutines, and `retrying` keeps their captures alive.
    auto sleep = [this](double seconds) {
        return sleepFor(&clock_, tavrin::Seconds(seconds), cancellation_);
    };
    auto report = [this](const std::exception_ptr& error, std::size_t retry, double seconds) {
        log_.log(
            "batch upload failed ({}); resending the same batch in {:.1f}s (retry {})",
            tavrin::description(error),
            seconds,
            retry);
    };
    auto attempt = [this, records = std::move(records), watermark] {
        return ingest_.upload(records, watermark, cancellation_);
    };
    co_return co_await tavrin::retrying<QCoro::Task, IngestClient::Ack>(
        retryDelays_, isWorthRetrying, std::move(sleep), std::move(report), std::move(attempt));
}

} // namespace orvel
