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
    has_ended INTEGER NOT NULL DEFAULT 0
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

} // namespace

SessionStore::SessionStore(const std::filesystem::path& file) : database_(file) {
    database_.change([](SQLite::Database& connection) { return connection.exec(schema); });
}

std::int64_t SessionStore::add(const std::string& uid, std::string_view refreshToken) {
    return database_.use([&](SQLite::Database& connection) {
        run(connection,
            "INSERT INTO sessions (uid, refresh_token_hash) VALUES (?, ?)",
            uid,
            sha256(refreshToken));
        return connection.getLastInsertRowid();
    });
}

std::optional<SessionStore::Session> SessionStore::find(std::string_view refreshToken) const {
    return database_.use([&](SQLite::Database& connection) -> std::optional<Session> {
        SQLite::Statement row(
            connection, "SELECT id, uid, revocation FROM sessions WHERE refresh_token_hash = ?");
        row.bind(1, sha256(refreshToken));
        return row.executeStep() ? std::optional(row.getColumns<Session, 3>()) : std::nullopt;
    });
}

void SessionStore::addIDToken(std::int64_t session, std::string_view idToken, Time end, Time now) {
    database_.change([&](SQLite::Database& connection) {
        run(connection, "DELETE FROM id_tokens WHERE ends_at <= ?", milliseconds(now));
        return run(
            connection,
            "INSERT INTO id_tokens (hash, session, ends_at) VALUES (?, ?, ?)",
            sha256(idToken),
            session,
            milliseconds(end));
    });
}

std::optional<SessionStore::Bearer> SessionStore::bearer(std::string_view idToken) const {
    return database_.use([&](SQLite::Database& connection) -> std::optional<Bearer> {
        SQLite::Statement row(
            connection,
            "SELECT uid, ends_at, has_ended FROM id_tokens JOIN sessions ON sessions.id = session"
            " WHERE hash = ?");
        row.bind(1, sha256(idToken));
        if (!row.executeStep()) {
            return std::nullopt;
        }
        const std::chrono::milliseconds end(row.getColumn(1).getInt64());
        return Bearer{row.getColumn(0), Time(end), row.getColumn(2).getInt() != 0};
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
