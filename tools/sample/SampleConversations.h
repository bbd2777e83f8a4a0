// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/SampleRandom.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvel {

/// The people of a sample and their chats, generated from a seed. Their phone numbers are reserved
/// for fiction, and the domains of their e-mail addresses for examples.
class SampleConversations final {
public:
    /// The reserved phone numbers do not suffice for more.
    static constexpr int maximumChatCount = 10'000;

    /// An address on one service.
    struct Handle {
        std::string id;
        std::string service;

        auto operator<=>(const Handle&) const = default;
    };

    struct Person {
        std::string givenName;
        std::string familyName;
        /// As Messages stores it: mostly international, sometimes without the country code. A
        /// business may have a short code or a name instead. Empty for none.
        std::string phone;
        /// Sometimes contains capital letters.
        std::string email;
        /// Whether the service knows this person.
        bool isKnown = false;
        bool isInAddressBook = false;
        /// The preferred address comes first.
        std::vector<Handle> addresses;
    };

    struct Chat {
        std::string guid;
        std::string identifier;
        std::string service;
        /// Empty unless the chat is a named group.
        std::string displayName;
        bool isGroup = false;
        /// False for the rare chat without rows in chat_handle_join.
        bool listsParticipants = true;
        std::size_t language = 0;
        /// Indexes of handles.
        std::vector<std::size_t> participants = {};
    };

    /// The user's own phone number, and the account name that Messages stores for it.
    static constexpr std::string_view ownNumber = "+14155550100";
    static constexpr std::string_view ownAccount = "P:+14155550100";

    /// The row id of a handle or chat with the index.
    [[nodiscard]] static constexpr std::int64_t rowID(std::size_t index) {
        return static_cast<std::int64_t>(index) + 1;
    }

    /// The first chat is with one person, the second is a group.
    SampleConversations(std::uint64_t seed, int chatCount);

    [[nodiscard]] const std::vector<Person>& people() const { return people_; }
    [[nodiscard]] const std::vector<Handle>& handles() const { return handles_; }
    [[nodiscard]] const std::vector<Chat>& chats() const { return chats_; }

    /// The sorted match hints of the people that the service knows.
    [[nodiscard]] std::vector<std::string> knownHandleHints() const;

    /// The people in the address book as vCards, with phone numbers as a person would type them.
    [[nodiscard]] std::string addressBook() const;

private:
    Person makePerson(std::size_t index);
    void addDirectChat(const Handle& address);
    void addGroup();
    std::size_t indexOf(const Handle& handle);

    SampleRandom random_;
    std::vector<Person> people_;
    std::vector<Handle> handles_;
    std::map<Handle, std::size_t> handleIndexes_;
    std::vector<Chat> chats_;
};

} // namespace orvel
