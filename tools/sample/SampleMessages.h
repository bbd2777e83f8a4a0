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

/// The messages of a sample, generated from a seed.
///
/// A message depends only on the options and its row id. So a database can be extended later, and a
/// test can look up the expected content of a row. Every text contains the row id as "(#12)" and is
/// therefore unique. The first three hundred rows contain every kind of message.
class SampleMessages final {
public:
    struct Options {
        std::uint64_t seed = 1;
        int chatCount = 12;
        /// The shares are probabilities, from 0 to 1.
        double twoChatShare = 0.005;
        double orphanShare = 0.02;
        double secondsDatesShare = 0.03;
        /// Malformed rows: ill-formed UTF-8, a NUL inside a text, a truncated archive or one
        /// without text, no date.
        double nastyShare = 0.005;
    };

    /// How the date column stores the time.
    enum class DateForm { Nanoseconds, Seconds, Missing, Zero, Negative };

    struct Message {
        std::int64_t rowID = 0;
        std::string guid;
        /// Indexes of chats. Empty if the message belongs to no chat.
        std::vector<std::size_t> chats;
        /// 0 for most of the user's own messages. The row may be missing.
        std::int64_t handleID = 0;
        bool isFromMe = false;
        std::string service;
        DateForm dateForm = DateForm::Nanoseconds;
        /// How long the message arrived after it was sent.
        std::chrono::nanoseconds delay{0};

        std::optional<std::string> text;
        std::optional<Blob> attributedBody;
        /// The text that a reader should get from these two columns, with ill-formed UTF-8
        /// repaired. No value if there is no readable text.
        std::optional<std::string> body;

        bool hasAttachments = false;
        int partCount = 1;
        /// Not 0 for a group event, such as a new member or a new name.
        int itemType = 0;
        int groupActionType = 0;
        std::string groupTitle;
        /// Not 0 for reactions and stickers.
        int associatedType = 0;
        std::string associatedGUID;
        std::string associatedEmoji;
        std::string threadOriginatorGUID;
        bool isEdited = false;
        bool isRetracted = false;
    };

    explicit SampleMessages(const Options& options);

    [[nodiscard]] const Options& options() const { return options_; }
    [[nodiscard]] const SampleConversations& conversations() const { return conversations_; }

    /// No value for the row id of a deleted message.
    [[nodiscard]] std::optional<Message> message(std::int64_t rowID) const;

    /// The default number of chats for a number of messages.
    [[nodiscard]] static int chatCountFor(std::int64_t messageCount);

private:
    Options options_;
    SampleConversations conversations_;
};

} // namespace orvel
