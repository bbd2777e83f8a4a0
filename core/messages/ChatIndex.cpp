// SPDX-License-Identifier: Apache-2.0
#include "core/messages/ChatIndex.h"

#include "core/messages/Handle.h"
#include "core/messages/HandleNormalizer.h"

#include <algorithm>
#include <utility>

namespace tavrin {

namespace {

/// The style of a group; 0 means that the database has no style.
constexpr std::int64_t groupStyle = 43;

} // namespace

bool ChatIndex::Chat::isGroup() const {
    return info.style != 0 ? info.style == groupStyle : info.participants.size() > 1;
}

void ChatIndex::replace(std::map<std::int64_t, ChatInfo> chats) {
    chats_.clear();
    for (auto& [rowID, info] : chats) {
        chats_.emplace(rowID, Chat{std::move(info)});
    }
}

void ChatIndex::setKnownHandleHints(const std::shared_ptr<const HintSet>& hints) {
    if (hints == knownHandleHints_) {
        return;
    }
    knownHandleHints_ = hints;
    for (auto& [rowID, chat] : chats_) {
        chat.hasKnownParticipant.reset();
    }
}

ChatIndex::Chat* ChatIndex::find(std::int64_t rowID) {
    const auto found = chats_.find(rowID);
    return found == chats_.end() ? nullptr : &found->second;
}

bool ChatIndex::isKnown(Chat* chat, const std::optional<std::string>& handle) const {
    return chat != nullptr && !chat->info.participants.empty() ? hasKnownParticipant(*chat)
                                                               : handle && isKnown(*handle);
}

bool ChatIndex::isKnown(const std::string& handle) const {
    if (knownHandleHints_ == nullptr) {
        return false;
    }
    const auto hint = HandleNormalizer::matchHint(Handle::classify(handle));
    return hint && knownHandleHints_->contains(*hint);
}

bool ChatIndex::hasKnownParticipant(Chat& chat) const {
    if (!chat.hasKnownParticipant) {
        const auto& participants = chat.info.participants;
        chat.hasKnownParticipant = std::any_of(
            participants.begin(), participants.end(), [this](const std::string& participant) {
                return isKnown(participant);
            });
    }
    return *chat.hasKnownParticipant;
}

} // namespace tavrin
