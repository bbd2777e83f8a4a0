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

/// One message as collected and sent. The JSON keys have the names and the order of the fields.
struct MessageRecord {
    std::string guid;
    /// The row id in the `message` table. Watermarks are row ids.
    std::int64_t rowID = 0;
    /// No value if the message is in no known chat.
    std::optional<std::string> chatGUID;
    /// The handles of the thread as Messages stores them, not normalized.
    std::vector<std::string> participants;
    /// Empty until the record is enriched.
    ParticipantNames participantNames;
    /// Empty until the record is enriched.
    ParticipantEmails participantEmails;
    /// No value for the user's own messages, and if Messages has no handle.
    std::optional<std::string> senderHandle;
    bool isFromMe = false;
    /// The transport as named by Messages.
    std::optional<std::string> service;
    Date sentAt;
    bool isGroupThread = false;
    bool hasAttachments = false;
    /// As stored; 0 for an ordinary message.
    std::int64_t associatedMessageType = 0;
    /// Set only if text is wanted and could be read.
    std::optional<std::string> body;
    /// Whether text was wanted but could not be decoded from the message's encoded body.
    bool bodyUnavailable = false;

    bool operator==(const MessageRecord&) const = default;

    /// A copy with both maps replaced.
    [[nodiscard]] MessageRecord
    withIdentities(ParticipantNames names, ParticipantEmails emails) const&;
    [[nodiscard]] MessageRecord withIdentities(ParticipantNames names, ParticipantEmails emails) &&;

    /// A copy without text, as if text had not been wanted.
    [[nodiscard]] MessageRecord withoutBody() const;
};

/// Writes the fifteen keys in order, without those of absent values. `sentAt` is ISO 8601.
void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const MessageRecord& record);

/// Throws `JSONDecodingError` if a required key is missing or a value has the wrong type. Optional
/// keys may be missing or null. Unknown keys are ignored.
MessageRecord
tag_invoke(const boost::json::value_to_tag<MessageRecord>&, const boost::json::value& json);

} // namespace tavrin
