// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/messages/SQLiteDatabase.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The SQL query that reads one batch of messages.
namespace tavrin::MessageQuery {

/// Positions in the select list.
namespace column {
inline constexpr int rowID = 0;
inline constexpr int guid = 1;
inline constexpr int date = 2;
inline constexpr int isFromMe = 3;
inline constexpr int service = 4;
inline constexpr int hasAttachments = 5;
inline constexpr int text = 6;
inline constexpr int attributedBody = 7;
inline constexpr int handle = 8;
inline constexpr int chat = 9;
inline constexpr int associatedMessageType = 10;
inline constexpr int itemType = 11;
} // namespace column

/// Selects a constant in place of a missing column, so the positions never change.
[[nodiscard]] std::string selectList(SQLiteDatabase& database);

[[nodiscard]] std::string statement(const std::string& selectList, bool ascending, bool hasSince);

/// The parameters of `statement`. Its limit is one row more than `batchLimit`, to show whether
/// there are more rows.
[[nodiscard]] std::vector<SQLiteDatabase::Binding>
bindings(std::int64_t bound, const std::optional<Date>& since, std::int64_t batchLimit);

/// The three parameters that compare a date with the instant. Small stored values are in seconds,
/// all others in nanoseconds.
[[nodiscard]] std::vector<SQLiteDatabase::Binding> sinceBindings(Date since);

/// The handle in that column. No value if it is too long for a phone number or an address.
[[nodiscard]] std::optional<std::string> handle(const SQLiteDatabase::Row& row, int column);

} // namespace tavrin::MessageQuery
