// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/IdentityEnricher.h"

#include <gtest/gtest.h>

namespace orvel {

namespace {

using Index = ContactBridge::IdentityIndex;

std::shared_ptr<const Index> sampleIndex() {
    auto index = std::make_shared<Index>();
    ContactBridge::Identity both;
    both.name = "Both";
    both.emails = {"both@example.com", "two@example.com"};
    index->emplace("4155550134", both);
    ContactBridge::Identity nameOnly;
    nameOnly.name = "Name Only";
    index->emplace("name@example.com", nameOnly);
    ContactBridge::Identity emailsOnly;
    emailsOnly.emails = {"mails@example.com"};
    index->emplace("mails@example.com", emailsOnly);
    return index;
}

std::vector<tavrin::MessageRecord> recordsWith(std::vector<std::string> participants) {
    std::vector<tavrin::MessageRecord> records(1);
    records[0].guid = "g";
    records[0].participants = std::move(participants);
    return records;
}

} // namespace

TEST(IdentityEnricherTest, FillsBothMapsByTheHandlesAsStored) {
    auto records = recordsWith({"+1 (415) 555-0134", "Name@Example.com", "mails@example.com"});
    IdentityEnricher(sampleIndex()).enrich(records);
    const tavrin::ParticipantNames names = {
        {"+1 (415) 555-0134", "Both"}, {"Name@Example.com", "Name Only"}};
    const tavrin::ParticipantEmails emails = {
        {"+1 (415) 555-0134", {"both@example.com", "two@example.com"}},
        {"mails@example.com", {"mails@example.com"}}};
    EXPECT_EQ(records[0].participantNames, names);
    EXPECT_EQ(records[0].participantEmails, emails);
    EXPECT_EQ(records[0].guid, "g");
}

TEST(IdentityEnricherTest, LeavesOutHandlesWithoutAHintOrAnEntry) {
    auto records = recordsWith({"12345", "+44 20 7946 0958"});
    IdentityEnricher(sampleIndex()).enrich(records);
    EXPECT_TRUE(records[0].participantNames.empty());
    EXPECT_TRUE(records[0].participantEmails.empty());
}

TEST(IdentityEnricherTest, ReplacesWhatARecordHad) {
    auto records = recordsWith({"12345"});
    records[0].participantNames = {{"old", "Old"}};
    IdentityEnricher(sampleIndex()).enrich(records);
    EXPECT_TRUE(records[0].participantNames.empty());
}

TEST(IdentityEnricherTest, AnEmptyIndexLeavesTheRecordsAsCollected) {
    auto records = recordsWith({"4155550134"});
    records[0].participantNames = {{"old", "Old"}};
    const auto before = records;
    IdentityEnricher(std::make_shared<const Index>()).enrich(records);
    EXPECT_EQ(records, before);
}

} // namespace orvel
