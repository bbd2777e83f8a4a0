// SPDX-License-Identifier: Apache-2.0
#include "service/RecordStore.h"

#include "core/Date.h"
#include "service/PrivateFile.h"
#include "service/ServiceError.h"

#include <boost/json.hpp>
#include <sqlite3.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string_view>
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

[[noreturn]] void fail(sqlite3* handle, const std::string& path) {
    throw ServiceError(ServiceError::Store{path, sqlite3_errmsg(handle)});
}

void execute(sqlite3* handle, const std::string& path, const char* sql) {
    if (sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(handle, path);
    }
}

/// A prepared statement; the values bound must outlive the run.
class Statement final {
public:
    Statement(sqlite3* handle, const std::string& path, std::string_view sql)
        : handle_(handle), path_(path) {
        const auto size = static_cast<int>(sql.size());
        if (sqlite3_prepare_v2(handle, sql.data(), size, &statement_, nullptr) != SQLITE_OK) {
            fail(handle, path);
        }
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    template <typename... Values>
    Statement& bind(const Values&... values) {
        sqlite3_reset(statement_);
        int index = 0;
        (bindOne(++index, values), ...);
        return *this;
    }

    /// Whether there is a row.
    bool step() {
        const int result = sqlite3_step(statement_);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            fail(handle_, path_);
        }
        return result == SQLITE_ROW;
    }

    [[nodiscard]] std::int64_t integer(int column) const {
        return sqlite3_column_int64(statement_, column);
    }
    [[nodiscard]] std::string string(int column) const {
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
        return bytes == nullptr ? std::string() : std::string(bytes, size);
    }

private:
    void bindOne(int index, std::int64_t value) {
        if (sqlite3_bind_int64(statement_, index, value) != SQLITE_OK) {
            fail(handle_, path_);
        }
    }
    void bindOne(int index, const std::string& value) {
        if (sqlite3_bind_text64(
                statement_, index, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8) !=
            SQLITE_OK) {
            fail(handle_, path_);
        }
    }

    sqlite3* handle_;
    const std::string& path_;
    sqlite3_stmt* statement_ = nullptr;
};

/// Undone when it is destroyed without `commit()`.
class Transaction final {
public:
    Transaction(sqlite3* handle, const std::string& path) : handle_(handle), path_(path) {
        execute(handle_, path_, "BEGIN IMMEDIATE");
    }
    ~Transaction() {
        if (!isCommitted_) {
            sqlite3_exec(handle_, "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit() {
        execute(handle_, path_, "COMMIT");
        isCommitted_ = true;
    }

private:
    sqlite3* handle_;
    const std::string& path_;
    bool isCommitted_ = false;
};

std::string now() {
    return tavrin::iso8601(std::chrono::system_clock::now());
}

std::int64_t rowLimit(std::size_t limit) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    return std::in_range<std::int64_t>(limit) ? static_cast<std::int64_t>(limit) : most;
}

} // namespace

RecordStore::RecordStore(const std::filesystem::path& file) : path_(file.string()) {
    makePrivateDirectory(std::filesystem::absolute(file).parent_path());
    // SQLite would make a file that everybody can read; its journals get the mode of the file.
    static_cast<void>(PrivateFile(file, PrivateFile::Mode::Append));
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path_.c_str(), &handle, flags, nullptr);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> closing(handle, sqlite3_close);
    if (result != SQLITE_OK) {
        fail(handle, path_);
    }
    // Somebody may look into the file with another program meanwhile.
    sqlite3_busy_timeout(handle, 5000);
    Transaction transaction(handle, path_);
    Statement version(handle, path_, "PRAGMA user_version");
    version.step();
    if (version.integer(0) == 0) {
        execute(handle, path_, schema);
        const auto mark = "PRAGMA user_version = " + std::to_string(formatVersion);
        execute(handle, path_, mark.c_str());
    } else if (version.integer(0) != formatVersion) {
        throw ServiceError(ServiceError::Store{path_, "it was made by another version"});
    }
    version.bind();
    transaction.commit();
    handle_ = closing.release();
}

RecordStore::~RecordStore() {
    sqlite3_close(handle_);
}

std::int64_t RecordStore::add(const Batch& batch) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(handle_, path_);
    Statement(
        handle_,
        path_,
        "INSERT INTO batches (received_at, client, watermark, records) VALUES (?, ?, ?, ?)")
        .bind(now(), batch.client, batch.watermark, rowLimit(batch.items.size()))
        .step();
    const std::int64_t id = sqlite3_last_insert_rowid(handle_);
    Statement insertion(
        handle_,
        path_,
        "INSERT INTO records (guid, batch, json) VALUES (?, ?, ?) ON CONFLICT (guid) DO NOTHING");
    std::int64_t added = 0;
    for (const auto& item : batch.items) {
        insertion.bind(item.guid, id, item.json).step();
        added += sqlite3_changes(handle_);
    }
    Statement(handle_, path_, "UPDATE batches SET new_records = ? WHERE id = ?")
        .bind(added, id)
        .step();
    transaction.commit();
    return added;
}

void RecordStore::addDiagnostics(const std::string& client, const std::vector<std::string>& lines) {
    const std::lock_guard lock(mutex_);
    const auto receivedAt = now();
    Transaction transaction(handle_, path_);
    Statement insertion(
        handle_, path_, "INSERT INTO diagnostics (received_at, client, line) VALUES (?, ?, ?)");
    for (const auto& line : lines) {
        insertion.bind(receivedAt, client, line).step();
    }
    transaction.commit();
}

RecordStore::Totals RecordStore::totals() const {
    const std::lock_guard lock(mutex_);
    Statement counts(
        handle_,
        path_,
        "SELECT (SELECT count(*) FROM records), (SELECT count(*) FROM batches),"
        " (SELECT count(*) FROM diagnostics)");
    counts.step();
    return {counts.integer(0), counts.integer(1), counts.integer(2)};
}

std::vector<RecordStore::ReceivedBatch> RecordStore::latestBatches(std::size_t limit) const {
    const std::lock_guard lock(mutex_);
    Statement rows(
        handle_,
        path_,
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
    Statement rows(handle_, path_, "SELECT json FROM records ORDER BY id DESC LIMIT ?");
    rows.bind(rowLimit(limit));
    std::vector<tavrin::MessageRecord> records;
    while (rows.step()) {
        records.push_back(
            boost::json::value_to<tavrin::MessageRecord>(boost::json::parse(rows.string(0))));
    }
    return records;
}

} // namespace orvel::service
