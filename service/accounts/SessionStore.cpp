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

Time timeOf(std::int64_t milliseconds) {
    return Time(std::chrono::milliseconds(milliseconds));
}

} // namespace

SessionStore::SessionStore(const std::filesystem::path& file) : database_(file) {
    Transaction transaction(database_);
    database_.execute(schema);
    transaction.commit();
}

std::int64_t SessionStore::add(const std::string& uid, std::string_view refreshToken) {
    const auto hash = sha256(refreshToken);
    const std::lock_guard lock(mutex_);
    Statement(database_, "INSERT INTO sessions (uid, refresh_token_hash) VALUES (?, ?)")
        .bind(uid, hash)
        .step();
    return database_.lastRowID();
}

std::optional<SessionStore::Session> SessionStore::find(std::string_view refreshToken) const {
    const auto hash = sha256(refreshToken);
    const std::lock_guard lock(mutex_);
    Statement row(
        database_, "SELECT id, uid, revocation FROM sessions WHERE refresh_token_hash = ?");
    if (!row.bind(hash).step()) {
        return std::nullopt;
    }
    return Session{row.integer(0), row.string(1), row.string(2)};
}

void SessionStore::addIDToken(std::int64_t session, std::string_view idToken, Time end, Time now) {
    const auto hash = sha256(idToken);
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    Statement(database_, "DELETE FROM id_tokens WHERE ends_at <= ?").bind(milliseconds(now)).step();
    Statement(database_, "INSERT INTO id_tokens (hash, session, ends_at) VALUES (?, ?, ?)")
        .bind(hash, session, milliseconds(end))
        .step();
    transaction.commit();
}

std::optional<SessionStore::Bearer> SessionStore::bearer(std::string_view idToken) const {
    const auto hash = sha256(idToken);
    const std::lock_guard lock(mutex_);
    Statement row(
        database_,
        "SELECT uid, ends_at, has_ended FROM id_tokens JOIN sessions ON sessions.id = session"
        " WHERE hash = ?");
    if (!row.bind(hash).step()) {
        return std::nullopt;
    }
    return Bearer{row.string(0), timeOf(row.integer(1)), row.integer(2) != 0};
}

std::size_t
SessionStore::revoke(const std::string& uid, const std::string& reason, bool endsIDTokens) {
    const std::lock_guard lock(mutex_);
    Statement(
        database_, "UPDATE sessions SET revocation = ?1, has_ended = ?2 WHERE ?3 = '' OR uid = ?3")
        .bind(reason, std::int64_t(endsIDTokens), uid)
        .step();
    return static_cast<std::size_t>(database_.changes());
}

std::size_t SessionStore::endIDTokens(Time now) {
    const auto end = milliseconds(now);
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE id_tokens SET ends_at = ?1 WHERE ends_at > ?1").bind(end).step();
    return static_cast<std::size_t>(database_.changes());
}

} // namespace orvel::service
