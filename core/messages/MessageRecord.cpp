// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessageRecord.h"

#include "core/JSON.h"

#include <boost/json.hpp>

#include <utility>

namespace tavrin {

namespace {

namespace json = boost::json;

constexpr std::size_t keyCount = 15;

void write(json::value& value, const std::vector<std::string>& strings) {
    json::array& array = value.emplace_array();
    array.reserve(strings.size());
    for (const std::string& string : strings) {
        array.emplace_back(string);
    }
}

} // namespace

MessageRecord
MessageRecord::withIdentities(ParticipantNames names, ParticipantEmails emails) const& {
    return MessageRecord(*this).withIdentities(std::move(names), std::move(emails));
}

MessageRecord MessageRecord::withIdentities(ParticipantNames names, ParticipantEmails emails) && {
    participantNames = std::move(names);
    participantEmails = std::move(emails);
    return std::move(*this);
}

MessageRecord MessageRecord::withoutBody() const {
    MessageRecord record = *this;
    record.body.reset();
    record.bodyUnavailable = false;
    return record;
}

void tag_invoke(const json::value_from_tag&, json::value& json, const MessageRecord& record) {
    // Create everything directly in the value's storage: there may be a million records.
    json::object& object = json.emplace_object();
    object.reserve(keyCount);
    const auto writeIfPresent =
        [&object](std::string_view key, const std::optional<std::string>& text) {
            if (text) {
                object.emplace(key, *text);
            }
        };
    object.emplace("guid", record.guid);
    object.emplace("rowID", record.rowID);
    writeIfPresent("chatGUID", record.chatGUID);
    write(object["participants"], record.participants);
    json::object& names = object["participantNames"].emplace_object();
    names.reserve(record.participantNames.size());
    for (const auto& [handle, name] : record.participantNames) {
        names.emplace(handle, name);
    }
    json::object& emails = object["participantEmails"].emplace_object();
    emails.reserve(record.participantEmails.size());
    for (const auto& [handle, addresses] : record.participantEmails) {
        write(emails[handle], addresses);
    }
    writeIfPresent("senderHandle", record.senderHandle);
    object.emplace("isFromMe", record.isFromMe);
    writeIfPresent("service", record.service);
    object.emplace("sentAt", iso8601(record.sentAt));
    object.emplace("isGroupThread", record.isGroupThread);
    object.emplace("hasAttachments", record.hasAttachments);
    object.emplace("associatedMessageType", record.associatedMessageType);
    writeIfPresent("body", record.body);
    object.emplace("bodyUnavailable", record.bodyUnavailable);
}

MessageRecord tag_invoke(const json::value_to_tag<MessageRecord>&, const json::value& json) {
    const json::object& object = asObject(json);
    MessageRecord record;
    record.guid = stringAt(object, "guid");
    record.rowID = integerAt(object, "rowID");
    record.chatGUID = optionalStringAt(object, "chatGUID");
    record.participants = stringsAt(object, "participants");
    for (const auto& [handle, name] : objectAt(object, "participantNames")) {
        record.participantNames.emplace(handle, asString(name, "participantNames"));
    }
    for (const auto& [handle, addresses] : objectAt(object, "participantEmails")) {
        record.participantEmails.emplace(handle, asStrings(addresses, "participantEmails"));
    }
    record.senderHandle = optionalStringAt(object, "senderHandle");
    record.isFromMe = booleanAt(object, "isFromMe");
    record.service = optionalStringAt(object, "service");
    const std::optional<Date> sentAt = dateFromISO8601(stringAt(object, "sentAt"));
    if (!sentAt) {
        throw JSONDecodingError("The JSON key \"sentAt\" is not an ISO 8601 date.");
    }
    record.sentAt = *sentAt;
    record.isGroupThread = booleanAt(object, "isGroupThread");
    record.hasAttachments = booleanAt(object, "hasAttachments");
    record.associatedMessageType = integerAt(object, "associatedMessageType");
    record.body = optionalStringAt(object, "body");
    record.bodyUnavailable = booleanAt(object, "bodyUnavailable");
    return record;
}

} // namespace tavrin
