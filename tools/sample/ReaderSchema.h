// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel::ReaderSchema {

/// The tables of messages, chats and handles, with only the columns that a reader of messages
/// needs. For the databases of tests and fuzzers, which add the tables that join these, and the
/// indexes.
inline constexpr const char* tables = R"sql(
CREATE TABLE message (
    ROWID INTEGER PRIMARY KEY AUTOINCREMENT,
    guid TEXT,
    text TEXT,
    handle_id INTEGER DEFAULT 0,
    attributedBody BLOB,
    service TEXT,
    date INTEGER,
    is_from_me INTEGER DEFAULT 0,
    cache_has_attachments INTEGER DEFAULT 0,
    item_type INTEGER DEFAULT 0,
    associated_message_type INTEGER DEFAULT 0
);
CREATE TABLE chat (
    ROWID INTEGER PRIMARY KEY AUTOINCREMENT,
    guid TEXT,
    style INTEGER,
    chat_identifier TEXT
);
CREATE TABLE handle (
    ROWID INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT,
    service TEXT
);
)sql";

} // namespace orvel::ReaderSchema
