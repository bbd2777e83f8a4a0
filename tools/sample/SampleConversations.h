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

/// The people of a sample and the chats they write in, made up from a seed. Their numbers belong to
/// ranges that are reserved for fiction, their e-mail addresses to domains reserved for examples.
class SampleConversations final {
public:
    /// There are not enough fictional numbers for more.
    static constexpr int maximumChatCount = 10'000;

    /// An address at a transport; in the database its row id is the index plus one.
    struct Handle {
        std::string id;
        std::string service;

        auto operator<=>(const Handle&) const = default;
    };

    struct Person {
        std::string givenName;
        std::string familyName;
        /// As Messages stores them; empty when there is none. Mostly international, now and then
        /// without the country code; a business may have a short code or a name instead.
        std::string phone;
        /// Now and then with capital letters.
        std::string email;
        /// The service knows this person.
        bool isKnown = false;
        bool isInAddressBook = false;
        /// Where this person is reached, the preferred one first.
        std::vector<Handle> addresses;
    };

    /// In the database its row id is the index plus one.
    struct Chat {
        std::string guid;
        std::string identifier;
        std::string service;
        /// Empty unless the people of a group gave it a name.
        std::string displayName;
        bool isGroup = false;
        /// False for the rare chat that the database joins to no handle.
        bool listsParticipants = true;
        std::size_t language = 0;
        /// Indexes of handles.
        std::vector<std::size_t> participants = {};
    };

    /// The first chat is with one person, the second is a group.
    SampleConversations(std::uint64_t seed, int chatCount);

    [[nodiscard]] const std::vector<Person>& people() const { return people_; }
    [[nodiscard]] const std::vector<Handle>& handles() const { return handles_; }
    [[nodiscard]] const std::vector<Chat>& chats() const { return chats_; }

    /// The match hints of the people that the service knows, sorted.
    [[nodiscard]] std::vector<std::string> knownHandleHints() const;

    /// The people in the address book as vCards, with their numbers as a person would type them.
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
