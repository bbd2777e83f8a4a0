// SPDX-License-Identifier: Apache-2.0
#include "service/records/RecordStore.h"

#include "core/Date.h"
#include "service/support/ServiceError.h"

#include <boost/json.hpp>

#include <chrono>
#include <limits>
#include <utility>

namespace orvel::service {

namespace {

constexpr int formatVersion = 1;

constexpr const char* schema = R"(
CREATE TABLE batches (
    id INTEGER PRIMARY KEY,
    received_at TEXT NOT NULL,
    client TEXT NOT NULL,
    watermark INTEGER NOT NULL,
    records INTEGER NOT NULL,
    new_records INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE records (
    id INTEGER PRIMARY KEY,
    guid TEXT NOT NULL UNIQUE,
    batch INTEGER NOT NULL REFERENCES batches (id),
    json TEXT NOT NULL
);
CREATE TABLE diagnostics (
    id INTEGER PRIMARY KEY,
    received_at TEXT NOT NULL,
    client TEXT NOT NULL,
    line TEXT NOT NULL
);
)";

std::string now() {
    return tavrin::iso8601(std::chrono::system_clock::now());
}

std::int64_t rowLimit(std::size_t limit) {
    constexpr auto maximum = std::numeric_limits<std::int64_t>::max();
    return std::in_range<std::int64_t>(limit) ? static_cast<std::int64_t>(limit) : maximum;
}

} // namespace

RecordStore::RecordStore(const std::filesystem::path& file) : database_(file) {
    Transaction transaction(database_);
    Statement version(database_, "PRAGMA user_version");
    version.step();
    if (version.integer(0) == 0) {
        database_.execute(schema);
        database_.execute("PRAGMA user_version = " + std::to_string(formatVersion));
    } else if (version.integer(0) != formatVersion) {
        throw ServiceError(
            ServiceError::Store{database_.path(), "it was created by another version"});
    }
    version.bind();
    transaction.commit();
}

std::int64_t RecordStore::add(const Batch& batch) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    Statement(
        database_,
        "INSERT INTO batches (received_at, client, watermark, records) VALUES (?, ?, ?, ?)")
        .bind(now(), batch.client, batch.watermark, rowLimit(batch.items.size()))
        .step();
    const std::int64_t id = database_.lastRowID();
    Statement insertion(
        database_,
        "INSERT INTO records (guid, batch, json) VALUES (?, ?, ?) ON CONFLICT (guid) DO NOTHING");
    std::int64_t added = 0;
    for (const auto& item : batch.items) {
        insertion.bind(item.guid, id, item.json).step();
        added += database_.changes();
    }
    Statement(database_, "UPDATE batches SET new_records = ? WHERE id = ?").bind(added, id).step();
    transaction.commit();
    return added;
}

void RecordStore::addDiagnostics(const std::string& client, const std::vector<std::string>& lines) {
    const std::lock_guard lock(mutex_);
    const auto receivedAt = now();
    Transaction transaction(database_);
    Statement insertion(
        database_, "INSERT INTO diagnostics (received_at, client, line) VALUES (?, ?, ?)");
    for (const auto& line : lines) {
        insertion.bind(receivedAt, client, line).step();
    }
    transaction.commit();
}

RecordStore::Totals RecordStore::totals() const {
    const std::lock_guard lock(mutex_);
    Statement counts(
        database_,
        "SELECT (SELECT count(*) FROM records), (SELECT count(*) FROM batches),"
        " (SELECT count(*) FROM diagnostics)");
    counts.step();
    return {counts.integer(0), counts.integer(1), counts.integer(2)};
}

std::vector<RecordStore::ReceivedBatch> RecordStore::latestBatches(std::size_t limit) const {
    const std::lock_guard lock(mutex_);
    Statement rows(
        database_,
        "SELECT received_at, client, watermark, records, new_records FROM batches"
        " ORDER BY id DESC LIMIT ?");
    rows.bind(rowLimit(limit));
    std::vector<ReceivedBatch> batches;
    while (rows.step()) {
        batches.push_back(
            {rows.string(0), rows.string(1), rows.integer(2), rows.integer(3), rows.integer(4)});
    }
    return batches;
}

std::vector<tavrin::MessageRecord> RecordStore::latestRecords(std::size_t limit) const {
    const std::lock_guard lock(mutex_);
    Statement rows(database_, "SELECT json FROM records ORDER BY id DESC LIMIT ?");
    rows.bind(rowLimit(limit));
    std::vector<tavrin::MessageRecord> records;
    while (rows.step()) {
        records.push_back(
            boost::json::value_to<tavrin::MessageRecord>(boost::json::parse(rows.string(0))));
    }
    return records;
}

} // namespace orvel::service
