// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleConversations.h"

#include "tools/sample/SampleText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <set>

namespace orvel {

namespace {

constexpr std::string_view iMessage = "iMessage";
constexpr std::string_view sms = "SMS";
constexpr std::string_view rcs = "RCS";

constexpr std::array<std::string_view, 36> areaCodes = {
    "415", "201", "202", "206", "212", "213", "214", "215", "303", "305", "312", "313",
    "314", "404", "408", "412", "503", "504", "510", "512", "602", "612", "615", "617",
    "619", "702", "703", "713", "718", "773", "801", "808", "816", "901", "904", "919"};

struct GivenName {
    std::string_view name;
    std::string_view ascii;
};

constexpr std::array<GivenName, 16> givenNames = {{
    {"Mira", "mira"},
    {"Jonas", "jonas"},
    {"Lucía", "lucia"},
    {"遥", "haruka"},
    {"عمر", "omar"},
    {"प्रिया", "priya"},
    {"Elena", "elena"},
    {"Tomás", "tomas"},
    {"Inès", "ines"},
    {"Felix", "felix"},
    {"نور", "noor"},
    {"健二", "kenji"},
    {"आशा", "asha"},
    {"Jürgen", "juergen"},
    {"Mateo", "mateo"},
    {"Yuki", "yuki"},
}};

constexpr std::array<std::string_view, 12> familyNames = {
    "Birch",
    "Harbor",
    "Meadow",
    "Stone",
    "Rivers",
    "Finch",
    "Marsh",
    "Hollow",
    "Thistle",
    "Bramble",
    "Heath",
    "Quarry"};

constexpr std::array<std::string_view, 8> groupNames = {
    "Weekend hike 🥾",
    "Stammtisch",
    "La familia ❤️",
    "読書会",
    "رحلة الصيف",
    "पड़ोसी",
    "Book club",
    "Kitchen plans"};

/// Unique for up to 5,900 people.
std::string phoneNumber(std::size_t person) {
    const std::size_t turn = person / 10;
    const std::size_t slot = person % 10;
    switch (slot) {
    case 6:
        return fmt::format("+442079460{:03}", turn);
    case 7:
        return fmt::format("+447700900{:03}", turn);
    case 8:
        return fmt::format("+3363998{:04}", turn);
    case 9:
        return fmt::format("+6125550{:04}", turn);
    default:
        const std::size_t number = turn * 6 + slot;
        return fmt::format(
            "+1{}55501{:02}", areaCodes[number % areaCodes.size()], 1 + number / areaCodes.size());
    }
}

bool isNorthAmerican(std::string_view phone) {
    return phone.size() == 12 && phone.starts_with("+1");
}

std::string digits(std::string_view phone) {
    std::string kept;
    std::copy_if(phone.begin(), phone.end(), std::back_inserter(kept), [](unsigned char character) {
        return std::isdigit(character) != 0;
    });
    return kept;
}

/// The match hint that service and agent compare. Empty if the number is too short for one.
std::string phoneHint(std::string_view phone) {
    std::string hint = digits(phone);
    if (hint.size() == 11 && hint.front() == '1') {
        hint.erase(0, 1);
    }
    return hint.size() < 7 ? std::string() : hint;
}

std::string asciiLowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return text;
}

/// Formats +14155550134 as (415) 555-0134.
std::string asTyped(const std::string& phone) {
    const std::string national = phoneHint(phone);
    if (national.size() != 10 || !(isNorthAmerican(phone) || phone.size() == 10)) {
        return phone;
    }
    return fmt::format(
        "({}) {}-{}", national.substr(0, 3), national.substr(3, 3), national.substr(6));
}

} // namespace

SampleConversations::SampleConversations(std::uint64_t seed, int chatCount) : random_(seed, 0) {
    const auto count = static_cast<std::size_t>(std::clamp(chatCount, 1, maximumChatCount));
    const std::size_t peopleCount = std::clamp<std::size_t>(count * 3 / 5, 8, 5'900);
    for (std::size_t index = 0; index < peopleCount; ++index) {
        people_.push_back(makePerson(index));
    }

    // First a chat with the first address of each person, then chats with second addresses.
    std::vector<Handle> addresses;
    for (std::size_t rank = 0; rank < 3; ++rank) {
        for (const Person& person : people_) {
            if (rank < person.addresses.size()) {
                addresses.push_back(person.addresses[rank]);
            }
        }
    }
    auto next = addresses.begin();
    while (chats_.size() < count) {
        const bool isGroup = chats_.size() == 1 || (chats_.size() > 1 && random_.chance(0.25));
        if (isGroup || next == addresses.end()) {
            addGroup();
        } else {
            addDirectChat(*next++);
        }
    }
}

std::vector<std::string> SampleConversations::knownHandleHints() const {
    std::set<std::string> hints;
    for (const Person& person : people_) {
        if (!person.isKnown) {
            continue;
        }
        hints.insert(phoneHint(person.phone));
        hints.insert(asciiLowercased(person.email));
    }
    hints.erase("");
    return {hints.begin(), hints.end()};
}

std::string SampleConversations::addressBook() const {
    std::string cards;
    for (std::size_t index = 0; index < people_.size(); ++index) {
        const Person& person = people_[index];
        if (!person.isInAddressBook) {
            continue;
        }
        cards += fmt::format(
            "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:sample-{2}\r\nFN:{0} {1}\r\nN:{1};{0};;;\r\n",
            person.givenName,
            person.familyName,
            index + 1);
        if (!person.phone.empty()) {
            cards += fmt::format("TEL;TYPE=CELL:{}\r\n", asTyped(person.phone));
        }
        if (!person.email.empty()) {
            cards += fmt::format("EMAIL;TYPE=HOME:{}\r\n", person.email);
        }
        cards += "END:VCARD\r\n";
    }
    return cards;
}

SampleConversations::Person SampleConversations::makePerson(std::size_t index) {
    Person person;
    if (index % 15 == 14) {
        // Short codes and names have no match hint.
        person.givenName = "Parcel";
        person.familyName = fmt::format("Desk {}", index);
        person.phone =
            random_.chance(0.5) ? fmt::format("0{:04}", index) : fmt::format("PARCEL-{}", index);
        person.addresses = {{person.phone, std::string(sms)}};
        return person;
    }

    const GivenName& givenName = random_.pick(givenNames);
    person.givenName = givenName.name;
    person.familyName = random_.pick(familyNames);
    person.isKnown = index % 4 == 0 || index % 4 == 3;
    person.isInAddressBook = index % 5 != 1 && index % 5 != 3;

    const bool hasPhone = index % 10 != 4;
    if (hasPhone) {
        person.phone = phoneNumber(index);
        if (isNorthAmerican(person.phone) && index % 20 == 5) {
            person.phone.erase(0, 2);
        }
        const bool prefersSMS = index % 5 == 2;
        person.addresses = {
            {person.phone, std::string(prefersSMS ? sms : iMessage)},
            {person.phone,
             std::string(
                 index % 5 == 3 ? rcs
                 : prefersSMS   ? iMessage
                                : sms)}};
    }
    if (!hasPhone || random_.chance(0.6)) {
        person.email = fmt::format(
            "{}.{}{}@example.{}",
            givenName.ascii,
            asciiLowercased(person.familyName),
            index,
            random_.chance(0.5) ? "com" : "org");
        if (index % 20 == 4) {
            person.email.front() =
                static_cast<char>(std::toupper(static_cast<unsigned char>(person.email.front())));
        }
        person.addresses.push_back({person.email, std::string(iMessage)});
    }
    return person;
}

void SampleConversations::addDirectChat(const Handle& address) {
    chats_.push_back(
        {.guid = fmt::format("{};-;{}", address.service, address.id),
         .identifier = address.id,
         .service = address.service,
         .displayName = {},
         .listsParticipants = chats_.size() % 50 != 7,
         .language = chats_.size() % SampleText::languageCount,
         .participants = {indexOf(address)}});
}

void SampleConversations::addGroup() {
    // Contains the chat's number, so that identifiers are unique.
    const std::string identifier =
        fmt::format("chat{:012}{:06}", random_.below(1'000'000'000'000), chats_.size());
    Chat chat{
        .guid = fmt::format("{};+;{}", iMessage, identifier),
        .identifier = identifier,
        .service = std::string(iMessage),
        .displayName = random_.chance(0.5) ? std::string(random_.pick(groupNames)) : std::string(),
        .isGroup = true,
        .language = chats_.size() % SampleText::languageCount};

    // A group can have a single participant left, and a person can be in it with two handles.
    const std::size_t wanted = 1 + random_.below(8);
    std::set<std::size_t> members;
    while (members.size() < std::min(wanted, people_.size())) {
        members.insert(random_.below(people_.size()));
    }
    for (const std::size_t member : members) {
        const auto& addresses = people_[member].addresses;
        chat.participants.push_back(indexOf(addresses.front()));
        if (addresses.size() > 1 && random_.chance(0.05)) {
            chat.participants.push_back(indexOf(addresses[1]));
        }
    }
    chats_.push_back(std::move(chat));
}

std::size_t SampleConversations::indexOf(const Handle& handle) {
    const auto [known, isNew] = handleIndexes_.try_emplace(handle, handles_.size());
    if (isNew) {
        handles_.push_back(handle);
    }
    return known->second;
}

} // namespace orvel
