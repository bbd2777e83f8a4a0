// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleConversations.h"

#include "core/messages/Handle.h"
#include "core/messages/HandleNormalizer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace orvel {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(SampleConversationsTest, BeginsWithOnePersonAndThenAGroup) {
    const SampleConversations conversations(1, 2);
    ASSERT_EQ(conversations.chats().size(), 2U);
    EXPECT_FALSE(conversations.chats()[0].isGroup);
    EXPECT_TRUE(conversations.chats()[0].guid.starts_with("iMessage;-;+1415555"));
    EXPECT_TRUE(conversations.chats()[1].isGroup);
    EXPECT_TRUE(conversations.chats()[1].guid.starts_with("iMessage;+;chat"));
}

TEST(SampleConversationsTest, TheMaximumNumberOfChatsHasNoDuplicates) {
    constexpr int count = SampleConversations::maximumChatCount;
    const SampleConversations conversations(3, count);
    std::set<std::string> guids;
    std::size_t groups = 0;
    for (const auto& chat : conversations.chats()) {
        guids.insert(chat.guid);
        groups += chat.isGroup ? 1 : 0;
        EXPECT_FALSE(chat.participants.empty());
    }
    EXPECT_EQ(guids.size(), std::size_t{count});
    EXPECT_GT(groups, count / 5U);
    EXPECT_LT(groups, count / 3U);
}

TEST(SampleConversationsTest, AddressesAreUnique) {
    const SampleConversations conversations(1, SampleConversations::maximumChatCount);
    std::set<std::string> addresses;
    std::size_t count = 0;
    for (const auto& person : conversations.people()) {
        for (const auto& address : {person.phone, person.email}) {
            if (!address.empty()) {
                addresses.insert(address);
                ++count;
            }
        }
    }
    EXPECT_EQ(addresses.size(), count);
}

TEST(SampleConversationsTest, TheServiceKnowsAboutHalfOfThePeople) {
    const SampleConversations conversations(1, 500);
    std::set<std::string> expected;
    std::size_t known = 0;
    for (const auto& person : conversations.people()) {
        known += person.isKnown ? 1 : 0;
        for (const auto& address : {person.phone, person.email}) {
            const auto hint =
                tavrin::HandleNormalizer::matchHint(tavrin::Handle::classify(address));
            if (person.isKnown && hint) {
                expected.insert(*hint);
            }
        }
    }
    EXPECT_EQ(
        conversations.knownHandleHints(),
        std::vector<std::string>(expected.begin(), expected.end()));
    EXPECT_GT(known, conversations.people().size() * 2 / 5);
    EXPECT_LT(known, conversations.people().size() * 3 / 5);
}

TEST(SampleConversationsTest, TheSmallestSampleHasAKnownPhoneAndAKnownEmail) {
    const auto hints = SampleConversations(1, 1).knownHandleHints();
    const auto isEmail = [](const std::string& hint) {
        return hint.find('@') != std::string::npos;
    };
    EXPECT_TRUE(std::any_of(hints.begin(), hints.end(), isEmail));
    EXPECT_FALSE(std::all_of(hints.begin(), hints.end(), isEmail));
}

TEST(SampleConversationsTest, WritesTheAddressBookWithFormattedNumbers) {
    const std::string cards = SampleConversations(1, 12).addressBook();
    EXPECT_TRUE(cards.starts_with("BEGIN:VCARD\r\nVERSION:3.0\r\n"));
    EXPECT_TRUE(cards.ends_with("END:VCARD\r\n"));
    EXPECT_THAT(cards, HasSubstr("\r\nTEL;TYPE=CELL:(415) 555-0101\r\n"));
    EXPECT_THAT(cards, Not(HasSubstr("TEL;TYPE=CELL:+1")));
    EXPECT_THAT(cards, HasSubstr("\r\nEMAIL;TYPE=HOME:"));
}

} // namespace
} // namespace orvel
