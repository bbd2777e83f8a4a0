// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessageRecord.h"

#include "core/JSON.h"

#include <boost/json.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

namespace tavrin {

namespace {

namespace json = boost::json;
using testing::HasSubstr;
using testing::Not;
using testing::ThrowsMessage;

MessageRecord fullRecord() {
    return {
        .guid = "1A2B",
        .rowID = 42,
        .chatGUID = "iMessage;-;+14155550134",
        .participants = {"+14155550134", "ann@example.com"},
        .participantNames = {{"+14155550134", "Ann"}},
        .participantEmails = {{"+14155550134", {"ann@example.com", "a@example.org"}}},
        .senderHandle = "+14155550134",
        .isFromMe = false,
        .service = "iMessage",
        .sentAt = Date(Seconds(1710003942)),
        .isGroupThread = true,
        .hasAttachments = true,
        .associatedMessageType = 2000,
        .body = "Hi \"you\" \xF0\x9F\x91\x8B",
        .bodyUnavailable = true};
}

MessageRecord bareRecord() {
    MessageRecord record;
    record.guid = "1A2B";
    record.rowID = 1;
    record.isFromMe = true;
    return record;
}

std::string encoded(const MessageRecord& record) {
    return json::serialize(json::value_from(record));
}

json::value encodedFullRecord() {
    return json::value_from(fullRecord());
}

constexpr std::array requiredKeys = {
    "guid",
    "rowID",
    "participants",
    "participantNames",
    "participantEmails",
    "isFromMe",
    "sentAt",
    "isGroupThread",
    "hasAttachments",
    "associatedMessageType",
    "bodyUnavailable"};
constexpr std::array optionalKeys = {"chatGUID", "senderHandle", "service", "body"};

} // namespace

TEST(MessageRecordTest, WritesTheKeysInTheOrderOfTheFields) {
    EXPECT_EQ(
        encoded(fullRecord()),
        R"({"guid":"1A2B","rowID":42,"chatGUID":"iMessage;-;+14155550134",)"
        R"("participants":["+14155550134","ann@example.com"],)"
        R"("participantNames":{"+14155550134":"Ann"},)"
        R"("participantEmails":{"+14155550134":["ann@example.com","a@example.org"]},)"
        R"("senderHandle":"+14155550134","isFromMe":false,"service":"iMessage",)"
        R"("sentAt":"2024-03-09T17:05:42Z","isGroupThread":true,"hasAttachments":true,)"
        "\"associatedMessageType\":2000,\"body\":\"Hi \\\"you\\\" \xF0\x9F\x91\x8B\","
        R"("bodyUnavailable":true})");
}

TEST(MessageRecordTest, LeavesOutTheKeysOfAbsentValues) {
    EXPECT_EQ(
        encoded(bareRecord()),
        R"({"guid":"1A2B","rowID":1,"participants":[],"participantNames":{},)"
        R"("participantEmails":{},"isFromMe":true,"sentAt":"1970-01-01T00:00:00Z",)"
        R"("isGroupThread":false,"hasAttachments":false,"associatedMessageType":0,)"
        R"("bodyUnavailable":false})");
}

TEST(MessageRecordTest, ReadsBackAsAnEqualRecord) {
    for (const MessageRecord& record : {fullRecord(), bareRecord()}) {
        EXPECT_EQ(json::value_to<MessageRecord>(json::parse(encoded(record))), record);
    }
}

TEST(MessageRecordTest, WritesAnEmptyTextThatIsPresent) {
    MessageRecord record = bareRecord();
    record.chatGUID = "";
    record.body = "";
    const json::value value = json::value_from(record);
    EXPECT_EQ(value.at("chatGUID"), "");
    EXPECT_EQ(value.at("body"), "");
    EXPECT_EQ(json::value_to<MessageRecord>(value), record);
}

TEST(MessageRecordTest, KeepsAnEmbeddedNULInTheText) {
    MessageRecord record = bareRecord();
    record.body = std::string("a\0b", 3);
    EXPECT_THAT(encoded(record), HasSubstr(R"("body":"a\u0000b")"));
    EXPECT_EQ(json::value_to<MessageRecord>(json::parse(encoded(record))), record);
}

TEST(MessageRecordTest, WritesIntegersOfSixtyFourBits) {
    MessageRecord record = bareRecord();
    record.rowID = std::numeric_limits<std::int64_t>::max();
    record.associatedMessageType = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(json::value_to<MessageRecord>(json::parse(encoded(record))), record);
}

TEST(MessageRecordTest, WritesWholeSeconds) {
    MessageRecord record = bareRecord();
    record.sentAt = Date(Seconds(1710003942.9));
    EXPECT_EQ(json::value_from(record).at("sentAt"), "2024-03-09T17:05:42Z");
}

TEST(MessageRecordTest, UsesOnlyTheMemoryOfTheValue) {
    std::array<unsigned char, 8192> buffer;
    json::static_resource resource(buffer.data(), buffer.size());
    const json::value value = json::value_from(fullRecord(), &resource);
    EXPECT_EQ(value.storage().get(), &resource);
    const json::object& object = value.as_object();
    EXPECT_EQ(object.storage().get(), &resource);
    EXPECT_EQ(object.at("participants").as_array().at(0).storage().get(), &resource);
    EXPECT_EQ(object.at("participantNames").as_object().storage().get(), &resource);
    EXPECT_EQ(
        object.at("participantEmails").at("+14155550134").as_array().storage().get(), &resource);
}

TEST(MessageRecordTest, RequiredKeysMustBePresent) {
    for (const char* key : requiredKeys) {
        json::value value = encodedFullRecord();
        value.as_object().erase(key);
        EXPECT_THAT(
            [&] { json::value_to<MessageRecord>(value); },
            ThrowsMessage<JSONDecodingError>(
                "The JSON key \"" + std::string(key) + "\" is missing."));
    }
}

TEST(MessageRecordTest, RequiredKeysMustNotBeNull) {
    for (const char* key : requiredKeys) {
        json::value value = encodedFullRecord();
        value.as_object()[key] = nullptr;
        EXPECT_THROW(json::value_to<MessageRecord>(value), JSONDecodingError) << key;
    }
}

TEST(MessageRecordTest, AnOptionalKeyMayBeMissingOrNull) {
    for (const char* key : optionalKeys) {
        json::value missing = encodedFullRecord();
        missing.as_object().erase(key);
        json::value null = encodedFullRecord();
        null.as_object()[key] = nullptr;
        const auto record = json::value_to<MessageRecord>(missing);
        EXPECT_NE(record, fullRecord()) << key;
        EXPECT_EQ(json::value_to<MessageRecord>(null), record) << key;
    }
}

TEST(MessageRecordTest, AValueOfTheWrongTypeIsAnError) {
    const auto expectRefused = [](const char* key, const json::value& wrong) {
        json::value value = encodedFullRecord();
        value.as_object()[key] = wrong;
        EXPECT_THROW(json::value_to<MessageRecord>(value), JSONDecodingError)
            << key << ": " << json::serialize(wrong);
    };
    for (const char* key : {"guid", "chatGUID", "senderHandle", "service", "sentAt", "body"}) {
        expectRefused(key, 1);
        expectRefused(key, json::array());
    }
    for (const char* key : {"rowID", "associatedMessageType"}) {
        expectRefused(key, "1");
        expectRefused(key, 1.5);
        expectRefused(key, true);
        expectRefused(key, std::numeric_limits<std::uint64_t>::max());
    }
    for (const char* key : {"isFromMe", "isGroupThread", "hasAttachments", "bodyUnavailable"}) {
        expectRefused(key, 1);
        expectRefused(key, "true");
    }
    expectRefused("participants", "one");
    expectRefused("participants", json::array({"one", 2}));
    expectRefused("participantNames", json::array());
    expectRefused("participantNames", {{"handle", 1}});
    expectRefused("participantEmails", {{"handle", "one"}});
    expectRefused("participantEmails", {{"handle", json::array({1})}});
    expectRefused("sentAt", "yesterday");
    EXPECT_THROW(json::value_to<MessageRecord>(json::parse("[]")), JSONDecodingError);
}

TEST(MessageRecordTest, AnErrorContainsNoHandle) {
    json::value value = encodedFullRecord();
    value.as_object()["participantNames"] = {{"+14155550134", 1}};
    EXPECT_THAT(
        [&] { json::value_to<MessageRecord>(value); },
        ThrowsMessage<JSONDecodingError>(Not(HasSubstr("4155550134"))));
}

TEST(MessageRecordTest, UnknownKeysAreIgnored) {
    json::value value = encodedFullRecord();
    value.as_object()["later"] = json::array({1, 2});
    EXPECT_EQ(json::value_to<MessageRecord>(value), fullRecord());
}

TEST(MessageRecordTest, WithIdentitiesReplacesBothMapsAndNothingElse) {
    const ParticipantNames names = {{"x", "Xenia"}};
    const ParticipantEmails emails = {{"x", {"x@example.com"}}};
    MessageRecord expected = fullRecord();
    expected.participantNames = names;
    expected.participantEmails = emails;
    const MessageRecord original = fullRecord();
    EXPECT_EQ(original.withIdentities(names, emails), expected);
    EXPECT_EQ(original, fullRecord());
    EXPECT_EQ(fullRecord().withIdentities(names, emails), expected);
    EXPECT_EQ(fullRecord().withIdentities({}, {}).participantNames, ParticipantNames());
}

TEST(MessageRecordTest, WithoutBodyDropsTheTextAndItsMark) {
    MessageRecord expected = fullRecord();
    expected.body.reset();
    expected.bodyUnavailable = false;
    EXPECT_EQ(fullRecord().withoutBody(), expected);
    MessageRecord unavailable = bareRecord();
    unavailable.bodyUnavailable = true;
    EXPECT_EQ(unavailable.withoutBody(), bareRecord());
}

TEST(MessageRecordTest, RecordsDifferWhenAnyFieldDiffers) {
    const auto expectDiffers = [](auto change) {
        MessageRecord record = fullRecord();
        change(record);
        EXPECT_NE(record, fullRecord());
    };
    expectDiffers([](MessageRecord& record) { record.guid = "other"; });
    expectDiffers([](MessageRecord& record) { record.participants.pop_back(); });
    expectDiffers([](MessageRecord& record) { record.participantEmails.clear(); });
    expectDiffers([](MessageRecord& record) { record.sentAt += Seconds(0.5); });
    expectDiffers([](MessageRecord& record) { record.bodyUnavailable = false; });
}

} // namespace tavrin
