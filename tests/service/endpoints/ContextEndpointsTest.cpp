// SPDX-License-Identifier: Apache-2.0
#include "service/records/RecordStore.h"
#include "tests/service/ServiceTest.h"

#include <functional>
#include <utility>
#include <vector>

namespace orvel::test {
namespace {

namespace json = boost::json;

class ContextEndpointsTest : public ServiceTest {
protected:
    void SetUp() override { start(); }

    [[nodiscard]] ClientReply ingest(const json::object& body) const {
        return client().post(ingestPath, json::serialize(body));
    }
};

TEST_F(ContextEndpointsTest, AcknowledgesABatch) {
    const auto reply = client().post(ingestPath, batch({"a", "b"}));

    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(true, reply.json().at("ok"));
    const json::object expected{
        {"acceptedWatermark", 4711},
        {"accepted", 2},
        {"contactsTouched", 0},
        {"activitiesWritten", 2},
        {"unknownCounterparty", 2},
        {"bodiesIgnored", 0},
    };
    EXPECT_EQ(expected, reply.data());
}

TEST_F(ContextEndpointsTest, StoresRecordsUnchanged) {
    auto record = recordJSON("a");
    record["body"] = "Grüße 👋";
    record["senderHandle"] = "+14155550100";
    record["participantNames"] = {{"+14155550100", "Someone"}};
    record["participantEmails"] = {{"+14155550100", {"someone@example.org"}}};

    ASSERT_EQ(200, ingest(batchJSON({record})).status);

    const auto kept = service_->store().latestRecords(10);
    ASSERT_EQ(1U, kept.size());
    EXPECT_EQ(json::value_to<tavrin::MessageRecord>(json::value(record)), kept.front());
}

TEST_F(ContextEndpointsTest, AcceptsAnEmptyBatch) {
    const auto reply = ingest(batchJSON({}));

    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(0, reply.data().at("accepted"));
}

TEST_F(ContextEndpointsTest, KeepsOneCopyOfARecordFromTwoBatches) {
    ASSERT_EQ(200, client().post(ingestPath, batch({"a", "b"})).status);

    const auto reply = client().post(ingestPath, batch({"b", "c"}));

    EXPECT_EQ(2, reply.data().at("accepted"));
    EXPECT_EQ(1, reply.data().at("activitiesWritten"));
    EXPECT_EQ(3U, service_->storedCount());
}

TEST_F(ContextEndpointsTest, StoresARecordOnceWhenABatchContainsItTwice) {
    const auto reply = client().post(ingestPath, batch({"a", "b", "a"}));

    EXPECT_EQ(3, reply.data().at("accepted"));
    EXPECT_EQ(2, reply.data().at("activitiesWritten"));
    EXPECT_EQ(2U, service_->storedCount());
}

TEST_F(ContextEndpointsTest, ARecordWithoutAGuidDoesNotBlockItsBatch) {
    const auto reply = client().post(ingestPath, batch({"a", "", "b"}));

    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(2, reply.data().at("accepted"));
    EXPECT_EQ(2, reply.data().at("activitiesWritten"));
    EXPECT_EQ(2, reply.data().at("unknownCounterparty"));
    EXPECT_EQ(2U, service_->storedCount());
}

TEST_F(ContextEndpointsTest, CountsKnownContacts) {
    options_.knownHandles = {"(415) 555-0100", "Friend@Example.org"};
    start();
    auto group = recordJSON("group");
    group["participants"] = {"+1 415 555 0100", " friend@example.ORG"};
    auto clientWithoutToken = recordJSON("clientWithoutToken");
    clientWithoutToken["participants"] = {"+14155550199"};
    auto withoutChat = recordJSON("without chat");
    withoutChat["participants"] = json::array();
    withoutChat["senderHandle"] = "friend@example.org";

    const auto reply =
        ingest(batchJSON({recordJSON("one"), group, clientWithoutToken, withoutChat}));

    EXPECT_EQ(2, reply.data().at("contactsTouched"));
    EXPECT_EQ(1, reply.data().at("unknownCounterparty"));
}

TEST_F(ContextEndpointsTest, RefusesInvalidBatches) {
    const auto with = [](std::string_view key, json::value value) {
        auto body = batchJSON({recordJSON("a")});
        body[key] = std::move(value);
        return json::serialize(body);
    };
    const auto without = [](std::string_view key) {
        auto body = batchJSON({recordJSON("a")});
        body.erase(key);
        return json::serialize(body);
    };
    const auto withRecord = [&with](std::string_view key, json::value value) {
        auto record = recordJSON("b");
        record[key] = std::move(value);
        return with("records", {recordJSON("a"), record});
    };
    const auto withoutRecordKey = [&with](std::string_view key) {
        auto record = recordJSON("b");
        record.erase(key);
        return with("records", {recordJSON("a"), record});
    };
    json::array tooMany;
    for (int index = 0; index < 1001; ++index) {
        tooMany.push_back(recordJSON(std::to_string(index)));
    }
    const std::vector<std::string> bodies{
        "",
        "{",
        "[]",
        "null",
        batch({"a"}) + "x",
        std::string(1000, '['),
        "{\"source\":\"\xff\"}",
        without("source"),
        with("source", "signal"),
        with("source", 1),
        without("client"),
        with("client", "linux/1.0"),
        with("client", "mac/"),
        with("client", json::string("mac/" + std::string(100, '1'))),
        with("client", nullptr),
        without("watermark"),
        with("watermark", "4711"),
        with("watermark", 1.5),
        with("watermark", std::uint64_t(1) << 63U),
        without("records"),
        with("records", nullptr),
        with("records", json::object()),
        with("records", {1}),
        with("records", json::array({json::array()})),
        with("records", std::move(tooMany)),
        withRecord("guid", nullptr),
        withoutRecordKey("rowID"),
        withRecord("rowID", "7"),
        withRecord("participants", "+14155550100"),
        withRecord("participantNames", json::array()),
        withRecord("participantEmails", {{"a", "b"}}),
        withRecord("sentAt", "yesterday"),
        withRecord("isFromMe", 1),
        withoutRecordKey("bodyUnavailable"),
        withRecord("body", 1),
    };
    for (const auto& body : bodies) {
        SCOPED_TRACE(body.substr(0, 500));

        const auto reply = client().post(ingestPath, body);

        EXPECT_EQ(400, reply.status);
        EXPECT_EQ(false, reply.json().at("ok"));
        EXPECT_EQ("invalid_request", reply.code());
        EXPECT_TRUE(json::value_to<std::string>(reply.json().at("error")).ends_with('.'));
    }
    EXPECT_EQ(0U, service_->storedCount());
}

TEST_F(ContextEndpointsTest, AcceptsAThousandRecords) {
    json::array records;
    for (int index = 0; index < 1000; ++index) {
        records.push_back(recordJSON(std::to_string(index)));
    }

    const auto reply = ingest(batchJSON(std::move(records)));

    EXPECT_EQ(1000, reply.data().at("activitiesWritten"));
}

TEST_F(ContextEndpointsTest, ReturnsNoHintsWithoutKnownHandles) {
    const auto reply = client().post(digestPath, "{}");

    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(json::object({{"hints", json::array()}}), reply.data());
}

TEST_F(ContextEndpointsTest, ReturnsTheMatchHintOfEveryKnownHandleOnce) {
    options_.knownHandles = {
        "+1 (415) 555-0100", "415 555 0100", " Friend@Example.org ", "+44 20 7946 0958", "12"};
    start();

    const auto reply = client().post(digestPath, "{}");

    const json::array expected{"4155550100", "442079460958", "friend@example.org"};
    EXPECT_EQ(expected, reply.data().at("hints"));
}

TEST_F(ContextEndpointsTest, RefusesADigestRequestWithoutAnObject) {
    EXPECT_EQ("invalid_request", client().post(digestPath, "[]").code());
}

TEST_F(ContextEndpointsTest, CountsDiagnosticLines) {
    const auto reply =
        client().post(diagnosticsPath, R"({"client":"mac/1.2.3","lines":["one","two"]})");

    EXPECT_EQ(json::object({{"received", 2}}), reply.data());
    EXPECT_EQ(2, service_->store().totals().diagnosticLines);
}

TEST_F(ContextEndpointsTest, RefusesInvalidDiagnostics) {
    const std::vector<std::string> bodies{
        R"({"lines":["one"]})",
        R"({"client":"one","lines":["one"]})",
        R"({"client":"mac/1.2.3"})",
        R"({"client":"mac/1.2.3","lines":"one"})",
        R"({"client":"mac/1.2.3","lines":["one",2]})",
    };
    for (const auto& body : bodies) {
        SCOPED_TRACE(body);
        EXPECT_EQ("invalid_request", client().post(diagnosticsPath, body).code());
    }
    EXPECT_EQ(0, service_->store().totals().diagnosticLines);
}

} // namespace
} // namespace orvel::test
