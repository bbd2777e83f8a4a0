// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/AttributedBodyWriter.h"
#include "tools/sample/SampleConversations.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// The messages of a sample, made up from a seed. A message follows from its row id alone, so that
/// a database can be continued later, and a test can ask what a row ought to hold.
///
/// Every text contains the row id as "(#12)" and so occurs once. Among the first three hundred
/// rows is at least one of each kind of message, common or rare.
class SampleMessages final {
public:
    struct Options {
        std::uint64_t seed = 1;
        int chatCount = 12;
        /// The shares are probabilities, from 0 to 1.
        double twoChatShare = 0.005;
        double orphanShare = 0.02;
        double secondsDatesShare = 0.03;
        /// Rows that no careful writer would leave behind: ill-formed UTF-8, a NUL inside a text,
        /// an archive cut short or without text, no date.
        double nastyShare = 0.005;
    };

    /// How the date column holds the time of a message.
    enum class DateForm { Nanoseconds, Seconds, Missing, Zero, Negative };

    struct Message {
        std::int64_t rowID = 0;
        std::string guid;
        /// Indexes of chats; none for a message that belongs to no chat.
        std::vector<std::size_t> chats;
        /// 0 for most of the user's own messages. May be a row that does not exist.
        std::int64_t handleID = 0;
        bool isFromMe = false;
        std::string service;
        DateForm dateForm = DateForm::Nanoseconds;
        /// How much earlier than its place in the table suggests it was sent.
        std::chrono::nanoseconds delay{0};

        std::optional<std::string> text;
        std::optional<Blob> attributedBody;
        /// What a reader gets from the two together, ill-formed UTF-8 repaired; nothing when there
        /// is nothing to read, or no way to read it.
        std::optional<std::string> body;

        bool hasAttachments = false;
        int partCount = 1;
        /// Not 0 for something other than a message: a member who came or went, a new group name.
        int itemType = 0;
        int groupActionType = 0;
        std::string groupTitle;
        /// Not 0 for a reaction.
        int associatedType = 0;
        std::string associatedGUID;
        std::string associatedEmoji;
        std::string threadOriginatorGUID;
        bool isEdited = false;
        bool isRetracted = false;
    };

    explicit SampleMessages(const Options& options);

    [[nodiscard]] const SampleConversations& conversations() const { return conversations_; }

    /// Nothing for a row id whose message was deleted.
    [[nodiscard]] std::optional<Message> message(std::int64_t rowID) const;

    /// The usual number of chats for a number of messages.
    [[nodiscard]] static int chatCountFor(std::int64_t messageCount);

private:
    Options options_;
    SampleConversations conversations_;
};

} // namespace orvel
