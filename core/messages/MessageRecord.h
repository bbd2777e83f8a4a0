// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <boost/json/conversion.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

/// Display names by participant handle.
using ParticipantNames = std::map<std::string, std::string>;
/// E-mail addresses by participant handle.
using ParticipantEmails = std::map<std::string, std::vector<std::string>>;

/// One message as collected and sent. The fields are in the order of their JSON keys, which are
/// spelled like the fields.
struct MessageRecord {
    std::string guid;
    /// The row in the `message` table: the unit of the collection watermarks.
    std::int64_t rowID = 0;
    /// Absent when the message is in no known chat.
    std::optional<std::string> chatGUID;
    /// The thread's handles as Messages stores them, not normalized.
    std::vector<std::string> participants;
    /// Empty as collected.
    ParticipantNames participantNames;
    /// Empty as collected.
    ParticipantEmails participantEmails;
    /// Absent for messages the user sent, and when Messages records no handle.
    std::optional<std::string> senderHandle;
    bool isFromMe = false;
    /// The transport as Messages names it.
    std::optional<std::string> service;
    Date sentAt;
    bool isGroupThread = false;
    bool hasAttachments = false;
    /// As stored; 0 for an ordinary message.
    std::int64_t associatedMessageType = 0;
    /// Present only when text is wanted and could be obtained.
    std::optional<std::string> body;
    /// Text was wanted, the message had an encoded body, and no text came out of it.
    bool bodyUnavailable = false;

    bool operator==(const MessageRecord&) const = default;

    /// The same record with both maps replaced.
    [[nodiscard]] MessageRecord
    withIdentities(ParticipantNames names, ParticipantEmails emails) const&;
    [[nodiscard]] MessageRecord withIdentities(ParticipantNames names, ParticipantEmails emails) &&;

    /// The same record without text, as if text had not been wanted.
    [[nodiscard]] MessageRecord withoutBody() const;
};

/// Writes the fifteen keys in order; an absent optional leaves its key out. `sentAt` is ISO 8601.
void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const MessageRecord& record);

/// Throws `JSONDecodingError` when a required key is missing or a value has the wrong type. The
/// optional keys may be missing or null; unknown keys are ignored.
MessageRecord
tag_invoke(const boost::json::value_to_tag<MessageRecord>&, const boost::json::value& json);

} // namespace tavrin
