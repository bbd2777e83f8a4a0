// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessages.h"

#include "core/Text.h"
#include "core/messages/AttributedBodyDecoder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace orvel {
namespace {

using Message = SampleMessages::Message;
using testing::HasSubstr;
using testing::MatchesRegex;

std::vector<Message> messagesOf(const SampleMessages& sample, std::int64_t lastRow) {
    std::vector<Message> messages;
    for (std::int64_t rowID = 1; rowID <= lastRow; ++rowID) {
        if (auto message = sample.message(rowID)) {
            messages.push_back(std::move(*message));
        }
    }
    return messages;
}

class SampleMessagesTest : public testing::Test {
protected:
    static constexpr std::int64_t lastRow = 2'000;

    SampleMessages sample_{{}};
    std::vector<Message> messages_ = messagesOf(sample_, lastRow);
};

TEST_F(SampleMessagesTest, SkipsSomeRowIDs) {
    EXPECT_LT(messages_.size(), lastRow - 30U);
    EXPECT_GT(messages_.size(), lastRow - 100U);
}

TEST_F(SampleMessagesTest, AMessageDependsOnItsRowIDOnly) {
    const SampleMessages again({});
    for (const Message& message : {messages_.back(), messages_.front()}) {
        const auto same = again.message(message.rowID);
        ASSERT_TRUE(same);
        EXPECT_EQ(same->guid, message.guid);
        EXPECT_EQ(same->body, message.body);
        EXPECT_EQ(same->attributedBody, message.attributedBody);
    }
}

TEST_F(SampleMessagesTest, AnotherSeedGivesOtherMessages) {
    const SampleMessages other({.seed = 2});
    EXPECT_NE(other.message(1)->guid, sample_.message(1)->guid);
}

TEST_F(SampleMessagesTest, EveryTextContainsItsNumber) {
    for (const Message& message : messages_) {
        if (message.body) {
            EXPECT_THAT(*message.body, HasSubstr("(#" + std::to_string(message.rowID) + ")"));
        }
    }
}

TEST_F(SampleMessagesTest, EveryBodyIsWellFormed) {
    for (const Message& message : messages_) {
        EXPECT_TRUE(tavrin::isValidUTF8(message.body.value_or(""))) << message.rowID;
    }
}

TEST_F(SampleMessagesTest, GUIDsAreUpperCaseUUIDsAndDiffer) {
    const auto isUUID =
        MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> guids;
    for (const Message& message : messages_) {
        EXPECT_THAT(message.guid, isUUID);
        guids.insert(message.guid);
    }
    EXPECT_EQ(guids.size(), messages_.size());
}

TEST_F(SampleMessagesTest, AReactionRefersToAnOlderMessage) {
    std::set<std::string> older;
    std::size_t reactions = 0;
    for (const Message& message : messages_) {
        if (message.associatedType != 0) {
            ++reactions;
            EXPECT_TRUE(older.contains(message.associatedGUID.substr(4))) << message.rowID;
        }
        older.insert(message.guid);
    }
    EXPECT_GT(reactions, messages_.size() / 30);
}

TEST_F(SampleMessagesTest, TheAgentReadsTheExpectedBodies) {
    for (const Message& message : messages_) {
        const std::string text = tavrin::repairedUTF8(message.text.value_or(""));
        const auto archived =
            tavrin::AttributedBodyDecoder::decode(message.attributedBody.value_or(Blob()));
        EXPECT_EQ(text.empty() ? archived : text, message.body) << message.rowID;
    }
}

TEST_F(SampleMessagesTest, ContainsNoMalformedRowsOnRequest) {
    for (const Message& message : messagesOf(SampleMessages({.nastyShare = 0}), lastRow)) {
        EXPECT_TRUE(tavrin::isValidUTF8(message.text.value_or("")));
        EXPECT_EQ(message.text.value_or("").find('\0'), std::string::npos);
        EXPECT_TRUE(
            message.dateForm == SampleMessages::DateForm::Nanoseconds ||
            message.dateForm == SampleMessages::DateForm::Seconds);
        EXPECT_TRUE(message.body || !message.attributedBody || message.attributedBody->empty());
    }
}

TEST_F(SampleMessagesTest, ContainsTextInManyScripts) {
    std::string all;
    for (const Message& message : messages_) {
        all += message.body.value_or("");
    }
    for (const char* part :
         {"garden",
          "¿",
          "Grüße",
          "電車",
          "الحديقة",
          "ट्रेन",
          "👩‍👩‍👧‍👦",
          "👍🏽",
          "🏳️‍🌈",
          "1️⃣",
          "\uFFFC"}) {
        EXPECT_THAT(all, HasSubstr(part));
    }
}

} // namespace
} // namespace orvel
