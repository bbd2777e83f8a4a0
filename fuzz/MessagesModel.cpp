// SPDX-License-Identifier: Apache-2.0
#include "fuzz/MessagesModel.h"

#include "core/Text.h"
#include "core/messages/AppleEpoch.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "core/messages/HandleNormalizer.h"

#include <algorithm>
#include <array>
#include <limits>

using namespace tavrin;

namespace {

using Options = MessagesCollector::Options;

constexpr std::size_t mostMessages = 24;
constexpr std::size_t mostOthers = 8;

std::optional<std::string> optionalText(Input& input, bool isThere) {
    return isThere ? std::optional<std::string>(input.text()) : std::nullopt;
}

MessagesModel::Message messageFrom(Input& input) {
    MessagesModel::Message message;
    const std::uint8_t flags = input.byte();
    message.isFromMe = (flags & 1U) != 0;
    message.hasAttachments = (flags & 2U) != 0;
    message.isItem = (flags & 12U) == 12U;
    const std::uint8_t more = input.byte();
    message.associatedMessageType = (more & 1U) != 0 ? 2'000 : 0;
    message.handle = (more >> 1U) & 7U;
    for (std::int64_t chat = 1; chat <= 4; ++chat) {
        if (((more >> 3U) & (1U << chat)) != 0) {
            message.chats.push_back(chat);
        }
    }
    // Usual dates are nanoseconds. Small ones are seconds.
    message.date = (flags & 16U) != 0
                       ? input.integer(8)
                       : 731'696'742'000'000'000 + input.byte() * std::int64_t{1'000'000'000};
    message.guid = (flags & 32U) == 0 ? std::optional("guid-" + std::to_string(more))
                                      : optionalText(input, (flags & 1U) != 0);
    message.text = optionalText(input, (flags & 64U) != 0);
    message.body = optionalText(input, (flags & 128U) != 0);
    return message;
}

MessagesModel::Chat chatFrom(Input& input) {
    MessagesModel::Chat chat;
    const std::uint8_t flags = input.byte();
    constexpr std::array<std::int64_t, 4> styles = {0, 43, 45, 7};
    chat.style = styles.at(flags & 3U);
    for (std::int64_t handle = 1; handle <= 5; ++handle) {
        if (((flags >> 2U) & (1U << handle)) != 0) {
            chat.participants.push_back(handle);
        }
    }
    if ((flags & 4U) != 0) {
        chat.participants.push_back(1);
        chat.participants.push_back(1);
    }
    chat.guid = input.text();
    return chat;
}

bool isSince(std::int64_t date, const std::optional<Date>& since) {
    return !since || date >= AppleEpoch::rawNanoseconds(*since) ||
           (date < AppleEpoch::nanosecondDivide && date >= AppleEpoch::rawSeconds(*since));
}

/// Adds the records of one message to the result.
class Reader final {
public:
    Reader(const MessagesModel& model, const Options& options, MessagesModel::Result& result)
        : model_(model), options_(options), result_(result) {}

    void read(std::int64_t rowID, const MessagesModel::Message& message) {
        if (message.chats.empty()) {
            readRow(rowID, message, std::nullopt);
        }
        for (const std::int64_t chat : message.chats) {
            readRow(rowID, message, chat);
        }
    }

private:
    [[nodiscard]] std::optional<std::string> handle(std::int64_t rowID) const {
        const auto found = model_.handles.find(rowID);
        return found == model_.handles.end() ? std::nullopt
                                             : std::optional(repairedUTF8(found->second));
    }

    [[nodiscard]] std::set<std::string> participants(const MessagesModel::Chat& chat) const {
        std::set<std::string> names;
        for (const std::int64_t rowID : chat.participants) {
            if (auto name = handle(rowID)) {
                names.insert(*std::move(name));
            }
        }
        return names;
    }

    [[nodiscard]] bool isKnown(const std::string& name) const {
        const auto hint = HandleNormalizer::matchHint(Handle::classify(name));
        return hint && options_.knownHandleHints->contains(*hint);
    }

    void readRow(
        std::int64_t rowID,
        const MessagesModel::Message& message,
        std::optional<std::int64_t> chatID) {
        ++result_.rows;
        const std::optional<Date> sentAt = AppleEpoch::date(message.date);
        if (message.isItem || !message.guid || !sentAt) {
            ++result_.notUserContent;
            return;
        }
        MessageRecord record;
        record.guid = repairedUTF8(*message.guid);
        record.rowID = rowID;
        record.sentAt = *sentAt;
        record.isFromMe = message.isFromMe;
        record.hasAttachments = message.hasAttachments;
        record.service = "iMessage";
        record.associatedMessageType = message.associatedMessageType;
        const std::optional<std::string> sender = handle(message.handle);
        if (const auto chat = chatID ? model_.chats.find(*chatID) : model_.chats.end();
            chat != model_.chats.end()) {
            const std::set<std::string> names = participants(chat->second);
            record.chatGUID = repairedUTF8(chat->second.guid);
            record.participants.assign(names.begin(), names.end());
            record.isGroupThread =
                chat->second.style == 43 || (chat->second.style == 0 && names.size() > 1);
        }
        if (record.participants.empty() && sender) {
            record.participants.push_back(*sender);
        }
        if (!message.isFromMe) {
            record.senderHandle = sender;
        }
        const auto isParticipantKnown = [this](const std::string& name) {
            return isKnown(name);
        };
        if (options_.scope == ThreadScope::KnownContactsOnly &&
            std::none_of(
                record.participants.begin(), record.participants.end(), isParticipantKnown)) {
            ++result_.outOfScope;
            return;
        }
        if (options_.mode == CollectionMode::WithBodies) {
            addBody(message, record);
        }
        result_.records.push_back(std::move(record));
    }

    void addBody(const MessagesModel::Message& message, MessageRecord& record) {
        if (message.text && !message.text->empty()) {
            record.body = repairedUTF8(*message.text);
        } else if (message.body && !message.body->empty()) {
            record.body = AttributedBodyDecoder::decode(
                {reinterpret_cast<const std::uint8_t*>(message.body->data()),
                 message.body->size()});
            record.bodyUnavailable = !record.body;
            result_.undecodable += record.bodyUnavailable ? 1 : 0;
        }
    }

    const MessagesModel& model_;
    const Options& options_;
    MessagesModel::Result& result_;
};

} // namespace

MessagesModel MessagesModel::from(Input& input) {
    MessagesModel model;
    std::int64_t lastMessage = 0;
    while (!input.isAtEnd() && model.messages.size() < mostMessages) {
        switch (const std::uint8_t kind = input.byte(); kind % 8) {
        case 0:
            if (model.handles.size() < mostOthers) {
                model.handles[static_cast<std::int64_t>(model.handles.size()) + 1] = input.text();
            }
            break;
        case 1:
            if (model.chats.size() < mostOthers) {
                model.chats[static_cast<std::int64_t>(model.chats.size()) + 1] = chatFrom(input);
            }
            break;
        case 2:
            // A gap between the row ids, up to a very large one.
            if (const std::int64_t gap = input.integer(1 + kind / 8 % 8);
                gap > 0 && lastMessage < std::numeric_limits<std::int64_t>::max() - gap - 1'000) {
                lastMessage += gap;
            }
            break;
        default:
            model.messages[++lastMessage] = messageFrom(input);
        }
    }
    return model;
}

MessagesModel::Result MessagesModel::scan(const Options& options) const {
    Result result;
    Reader reader(*this, options, result);
    for (const auto& [rowID, message] : messages) {
        if (isSince(message.date, options.since)) {
            reader.read(rowID, message);
        }
    }
    return result;
}

std::int64_t MessagesModel::countMessages(Date since) const {
    return std::count_if(messages.begin(), messages.end(), [since](const auto& entry) {
        return !entry.second.isItem && isSince(entry.second.date, since);
    });
}
