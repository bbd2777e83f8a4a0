// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessageQuery.h"

#include "core/messages/AppleEpoch.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

namespace tavrin {

using Binding = SQLiteDatabase::Binding;

std::string MessageQuery::selectList(SQLiteDatabase& database) {
    const auto columnOr = [&database](const std::string& name, const std::string& constant) {
        return database.columnExists(name, "message") ? "m." + name : constant;
    };
    const std::string attributedBody = columnOr("attributedBody", "NULL");
    const std::string associatedMessageType = columnOr("associated_message_type", "0");
    const std::string itemType = columnOr("item_type", "0");
    const std::string service = columnOr("service", "NULL");
    const std::string hasAttachments = columnOr("cache_has_attachments", "0");
    return "m.ROWID, m.guid, m.date, m.is_from_me, " + service + ", " + hasAttachments +
           ", m.text, " + attributedBody + ", h.id, cmj.chat_id, " + associatedMessageType + ", " +
           itemType;
}

std::string MessageQuery::statement(const std::string& selectList, bool ascending, bool hasSince) {
    return "SELECT " + selectList +
           "\nFROM message m"
           "\nLEFT JOIN handle h ON h.ROWID = m.handle_id"
           "\nLEFT JOIN chat_message_join cmj ON cmj.message_id = m.ROWID"
           "\nWHERE m.ROWID " +
           (ascending ? "> ?" : "< ?") +
           (hasSince ? " AND (m.date >= ? OR (m.date < ? AND m.date >= ?))" : "") +
           "\nORDER BY m.ROWID " + (ascending ? "ASC" : "DESC") + "\nLIMIT ?";
}

std::vector<Binding> MessageQuery::bindings(
    std::int64_t bound, const std::optional<Date>& since, std::int64_t batchLimit) {
    std::vector<Binding> bindings = {Binding::integer(bound)};
    if (since) {
        const std::vector<Binding> dates = sinceBindings(*since);
        bindings.insert(bindings.end(), dates.begin(), dates.end());
    }
    constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
    bindings.push_back(Binding::integer(std::min(batchLimit, greatest - 1) + 1));
    return bindings;
}

std::vector<Binding> MessageQuery::sinceBindings(Date since) {
    return {
        Binding::integer(AppleEpoch::rawNanoseconds(since)),
        Binding::integer(AppleEpoch::nanosecondDivide),
        Binding::integer(AppleEpoch::rawSeconds(since))};
}

std::optional<std::string> MessageQuery::handle(const SQLiteDatabase::Row& row, int column) {
    // E-mail addresses have at most 254 bytes. The handles of a thread are in each of its records.
    constexpr std::size_t longestHandle = 1'000;
    std::optional<std::string> handle = row.string(column);
    return handle && handle->size() > longestHandle ? std::nullopt : std::move(handle);
}

} // namespace tavrin
