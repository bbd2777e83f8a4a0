// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/MessageWriter.h"

#include "core/messages/AppleEpoch.h"
#include "tools/sample/SampleRandom.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace orvel {

namespace {

using Value = RowInserter::Value;

constexpr std::int64_t rowsPerTransaction = 50'000;

std::optional<std::int64_t> storedDate(std::int64_t time, SampleMessages::DateForm form) {
    constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
    switch (form) {
    case SampleMessages::DateForm::Nanoseconds:
        return time;
    case SampleMessages::DateForm::Seconds:
        return time / nanosecondsPerSecond;
    case SampleMessages::DateForm::Missing:
        return std::nullopt;
    case SampleMessages::DateForm::Zero:
        return 0;
    case SampleMessages::DateForm::Negative:
        return -time;
    }
    return std::nullopt;
}

Value orNull(const std::string& text) {
    return text.empty() ? Value() : Value(std::string_view(text));
}

Value orNull(const std::optional<std::string>& text) {
    return text ? Value(std::string_view(*text)) : Value();
}

Value orNull(const std::optional<Blob>& blob) {
    return blob ? Value(std::span<const std::uint8_t>(*blob)) : Value();
}

Value orNull(std::optional<std::int64_t> number) {
    return number ? Value(*number) : Value();
}

} // namespace

MessageWriter::MessageWriter(
    SQLite::Database& connection,
    const SampleMessages& messages,
    const Timeline& timeline,
    std::int64_t firstRowID,
    const WriteProgress& onProgress)
    : connection_(connection),
      messages_(messages),
      timeline_(timeline),
      nextRowID_(firstRowID),
      onProgress_(onProgress),
      messageRows_(connection, "message"),
      membershipRows_(connection, "chat_message_join") {}

void MessageWriter::write(std::int64_t count) {
    const std::int64_t end = written_ + count;
    while (written_ < end) {
        connection_.exec("BEGIN IMMEDIATE");
        const std::int64_t chunkEnd = std::min(end, written_ + rowsPerTransaction);
        while (written_ < chunkEnd) {
            if (const auto message = messages_.message(nextRowID_++)) {
                insert(*message);
                ++written_;
            }
        }
        connection_.exec("COMMIT");
        if (onProgress_) {
            onProgress_(written_);
        }
    }
}

void MessageWriter::insert(const SampleMessages::Message& message) {
    const auto& chats = messages_.conversations().chats();
    const auto* group = message.chats.empty() || !chats[message.chats.front()].isGroup
                            ? nullptr
                            : &chats[message.chats.front()];
    const std::int64_t time = timeOf(message);
    const Value date = orNull(storedDate(time, message.dateForm));
    const Value noDate = std::int64_t{0};
    const Value yes = std::int64_t{1};
    const Value byMe = std::int64_t{message.isFromMe};
    const Value byOther = std::int64_t{!message.isFromMe};
    messageRows_.insert({
        {"ROWID", message.rowID},
        {"guid", message.guid},
        {"text", orNull(message.text)},
        {"handle_id", message.handleID},
        {"attributedBody", orNull(message.attributedBody)},
        {"version", std::int64_t{10}},
        {"service", message.service},
        {"account", SampleConversations::ownAccount},
        {"date", date},
        {"date_read", message.isFromMe ? noDate : date},
        {"date_delivered", message.isFromMe ? date : noDate},
        {"is_delivered", yes},
        {"is_finished", yes},
        {"is_from_me", byMe},
        {"is_read", byOther},
        {"is_sent", byMe},
        {"cache_has_attachments", std::int64_t{message.hasAttachments}},
        {"cache_roomnames", group == nullptr ? Value() : Value(group->identifier)},
        {"item_type", std::int64_t{message.itemType}},
        {"group_title", orNull(message.groupTitle)},
        {"group_action_type", std::int64_t{message.groupActionType}},
        {"associated_message_guid", orNull(message.associatedGUID)},
        {"associated_message_type", std::int64_t{message.associatedType}},
        {"associated_message_emoji", orNull(message.associatedEmoji)},
        {"destination_caller_id", SampleConversations::ownNumber},
        {"thread_originator_guid", orNull(message.threadOriginatorGUID)},
        {"date_edited", message.isEdited ? date : noDate},
        {"date_retracted", message.isRetracted ? date : noDate},
        {"part_count", std::int64_t{message.partCount}},
    });
    for (const std::size_t chat : message.chats) {
        membershipRows_.insert({
            {"chat_id", SampleConversations::rowID(chat)},
            {"message_id", message.rowID},
            {"message_date", date},
        });
    }
}

std::int64_t MessageWriter::timeOf(const SampleMessages::Message& message) const {
    const std::int64_t later = timeline_.messageCount - 1 - written_;
    if (later == 0) {
        return timeline_.newest;
    }
    // Smaller values would be read as seconds.
    const std::int64_t oldest = std::max(timeline_.oldest, tavrin::AppleEpoch::nanosecondDivide);
    const std::int64_t distance =
        std::max<std::int64_t>(1, (timeline_.newest - oldest) / timeline_.messageCount);
    constexpr std::uint64_t stream = 4ULL << 40U;
    SampleRandom random(
        messages_.options().seed, stream + static_cast<std::uint64_t>(message.rowID));
    const auto jitter = static_cast<std::int64_t>(random.below(static_cast<std::size_t>(distance)));
    return std::max<std::int64_t>(
        oldest, timeline_.newest - distance * later - jitter - message.delay.count());
}

} // namespace orvel
