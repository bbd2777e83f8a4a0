// SPDX-License-Identifier: Apache-2.0
#include "service/records/RecordStore.h"

#include "core/Date.h"

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
    database_.change([&file](SQLite::Database& connection) {
        const int version = connection.execAndGet("PRAGMA user_version");
        if (version == 0) {
            connection.exec(schema);
            connection.exec("PRAGMA user_version = " + std::to_string(formatVersion));
        } else if (version != formatVersion) {
            throw ServiceError(
                ServiceError::Store{file.string(), "it was created by another version"});
        }
        return version;
    });
}

std::int64_t RecordStore::add(const Batch& batch) {
    return database_.change([&batch](SQLite::Database& connection) {
        run(connection,
            "INSERT INTO batches (received_at, client, watermark, records) VALUES (?, ?, ?, ?)",
            now(),
            batch.client,
            batch.watermark,
            rowLimit(batch.items.size()));
        const std::int64_t id = connection.getLastInsertRowid();
        SQLite::Statement insertion(
            connection,
            "INSERT INTO records (guid, batch, json) VALUES (?, ?, ?) ON CONFLICT (guid) DO "
            "NOTHING");
        std::int64_t added = 0;
        for (const auto& item : batch.items) {
            SQLite::bind(insertion, item.guid, id, item.json);
            added += insertion.exec();
            insertion.reset();
        }
        run(connection, "UPDATE batches SET new_records = ? WHERE id = ?", added, id);
        return added;
    });
}

void RecordStore::addDiagnostics(const std::string& client, const std::vector<std::string>& lines) {
    database_.change([&](SQLite::Database& connection) {
        const auto receivedAt = now();
        SQLite::Statement insertion(
            connection, "INSERT INTO diagnostics (received_at, client, line) VALUES (?, ?, ?)");
        for (const auto& line : lines) {
            SQLite::bind(insertion, receivedAt, client, line);
            insertion.exec();
            insertion.reset();
        }
        return lines.size();
    });
}

RecordStore::Totals RecordStore::totals() const {
    return database_.use([](SQLite::Database& connection) {
        SQLite::Statement counts(
            connection,
            "SELECT (SELECT count(*) FROM records), (SELECT count(*) FROM batches),"
            " (SELECT count(*) FROM diagnostics)");
        counts.executeStep();
        return counts.getColumns<Totals, 3>();
    });
}

std::vector<RecordStore::ReceivedBatch> RecordStore::latestBatches(std::size_t limit) const {
    return database_.use([limit](SQLite::Database& connection) {
        SQLite::Statement rows(
            connection,
            "SELECT received_at, client, watermark, records, new_records FROM batches"
            " ORDER BY id DESC LIMIT ?");
        rows.bind(1, rowLimit(limit));
        std::vector<ReceivedBatch> batches;
        while (rows.executeStep()) {
            batches.push_back(rows.getColumns<ReceivedBatch, 5>());
        }
        return batches;
    });
}

std::vector<tavrin::MessageRecord> RecordStore::latestRecords(std::size_t limit) const {
    return database_.use([limit](SQLite::Database& connection) {
        SQLite::Statement rows(connection, "SELECT json FROM records ORDER BY id DESC LIMIT ?");
        rows.bind(1, rowLimit(limit));
        std::vector<tavrin::MessageRecord> records;
        while (rows.executeStep()) {
            const auto json = boost::json::parse(rows.getColumn(0).getString());
            records.push_back(boost::json::value_to<tavrin::MessageRecord>(json));
        }
        return records;
    });
}

} // namespace orvel::service
