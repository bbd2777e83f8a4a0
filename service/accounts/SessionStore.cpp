// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/SessionStore.h"

#include "service/support/Cryptography.h"

namespace orvel::service {

namespace {

using Time = SessionStore::Time;

// Separate from the store's format version: versions without sessions ignore these tables.
constexpr const char* schema = R"(
CREATE TABLE IF NOT EXISTS sessions (
    id INTEGER PRIMARY KEY,
    uid TEXT NOT NULL,
    refresh_token_hash TEXT NOT NULL UNIQUE,
    revocation TEXT NOT NULL DEFAULT '',
    has_ended INTEGER NOT NULL DEFAULT 0,
    ends_at INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS id_tokens (
    hash TEXT PRIMARY KEY,
    session INTEGER NOT NULL REFERENCES sessions (id),
    ends_at INTEGER NOT NULL
);
)";

std::int64_t milliseconds(Time time) {
    return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

Time timeAt(const SQLite::Statement& row, int column) {
    return Time(std::chrono::milliseconds(row.getColumn(column).getInt64()));
}

} // namespace

SessionStore::SessionStore(const std::filesystem::path& file) : database_(file) {
    database_.change([](SQLite::Database& connection) {
        const int endColumns = connection.execAndGet(
            "SELECT count(*) FROM pragma_table_info('sessions') WHERE name = 'ends_at'");
        if (endColumns == 0) {
            connection.exec("DROP TABLE IF EXISTS id_tokens; DROP TABLE IF EXISTS sessions");
        }
        return connection.exec(schema);
    });
}

std::int64_t
SessionStore::add(const std::string& uid, std::string_view refreshToken, Time end, Time now) {
    return database_.change([&](SQLite::Database& connection) -> std::int64_t {
        run(connection,
            "INSERT INTO sessions (uid, refresh_token_hash, ends_at) VALUES (?, ?, ?)",
            uid,
            sha256(refreshToken),
            milliseconds(end));
        const std::int64_t id = connection.getLastInsertRowid();
        run(connection,
            "DELETE FROM sessions WHERE ends_at <= ?1 OR id IN"
            " (SELECT id FROM sessions ORDER BY id DESC LIMIT -1 OFFSET ?2)",
            milliseconds(now - memory),
            maxSessions);
        connection.exec("DELETE FROM id_tokens WHERE session NOT IN (SELECT id FROM sessions)");
        return id;
    });
}

std::optional<SessionStore::Session> SessionStore::find(std::string_view refreshToken) const {
    return database_.use([&](SQLite::Database& connection) -> std::optional<Session> {
        SQLite::Statement row(
            connection,
            "SELECT id, uid, revocation, ends_at FROM sessions WHERE refresh_token_hash = ?");
        row.bind(1, sha256(refreshToken));
        if (!row.executeStep()) {
            return std::nullopt;
        }
        return Session{
            row.getColumn(0).getInt64(), row.getColumn(1), row.getColumn(2), timeAt(row, 3)};
    });
}

void SessionStore::addIDToken(std::int64_t session, std::string_view idToken, Time end, Time now) {
    database_.change([&](SQLite::Database& connection) {
        run(connection, "DELETE FROM id_tokens WHERE ends_at <= ?", milliseconds(now));
        run(connection,
            "INSERT INTO id_tokens (hash, session, ends_at) VALUES (?, ?, ?)",
            sha256(idToken),
            session,
            milliseconds(end));
        return run(
            connection,
            "DELETE FROM id_tokens WHERE rowid IN (SELECT rowid FROM id_tokens"
            " WHERE session = ?1 ORDER BY rowid DESC LIMIT -1 OFFSET ?2)",
            session,
            maxIDTokens);
    });
}

std::optional<SessionStore::Bearer> SessionStore::bearer(std::string_view idToken) const {
    return database_.use([&](SQLite::Database& connection) -> std::optional<Bearer> {
        SQLite::Statement row(
            connection,
            "SELECT uid, id_tokens.ends_at, sessions.ends_at, has_ended FROM id_tokens"
            " JOIN sessions ON sessions.id = session WHERE hash = ?");
        row.bind(1, sha256(idToken));
        if (!row.executeStep()) {
            return std::nullopt;
        }
        return Bearer{
            row.getColumn(0), timeAt(row, 1), timeAt(row, 2), row.getColumn(3).getInt() != 0};
    });
}

std::size_t
SessionStore::revoke(const std::string& uid, const std::string& reason, bool endsIDTokens) {
    return database_.use([&](SQLite::Database& connection) -> std::size_t {
        return run(
            connection,
            "UPDATE sessions SET revocation = ?1, has_ended = ?2 WHERE ?3 = '' OR uid = ?3",
            reason,
            std::int64_t(endsIDTokens),
            uid);
    });
}

std::size_t SessionStore::endIDTokens(Time now) {
    return database_.use([now](SQLite::Database& connection) -> std::size_t {
        return run(
            connection, "UPDATE id_tokens SET ends_at = ?1 WHERE ends_at > ?1", milliseconds(now));
    });
}

} // namespace orvel::service
