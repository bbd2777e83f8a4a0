// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/MessagesCollector.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace tavrin {

/// The chats of a database, and which of them have a participant that the service knows.
class ChatIndex final {
public:
    using ChatInfo = MessagesCollector::ChatInfo;
    using HintSet = MessagesCollector::HintSet;

    struct Chat {
        ChatInfo info;
        /// Computed for the first row that needs it.
        std::optional<bool> hasKnownParticipant = std::nullopt;

        [[nodiscard]] bool isGroup() const;
    };

    /// By chat row id.
    void replace(std::map<std::int64_t, ChatInfo> chats);

    /// The handles that the service knows, as match hints. Null means an empty set.
    void setKnownHandleHints(const std::shared_ptr<const HintSet>& hints);

    /// Null if there is no such chat.
    [[nodiscard]] Chat* find(std::int64_t rowID);

    /// Whether a participant of the chat is known. The handle of the message counts if there is no
    /// chat or it has no participants.
    [[nodiscard]] bool isKnown(Chat* chat, const std::optional<std::string>& handle) const;

private:
    [[nodiscard]] bool isKnown(const std::string& handle) const;
    [[nodiscard]] bool hasKnownParticipant(Chat& chat) const;

    std::unordered_map<std::int64_t, Chat> chats_;
    std::shared_ptr<const HintSet> knownHandleHints_;
};

} // namespace tavrin
