// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/IngestClient.h"

#include "OrvelAgent/base/Configuration.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"

#include <gtest/gtest.h>

namespace orvel {

namespace {

using test::runTask;

QCoro::Task<std::optional<tavrin::Secret>> noToken() {
    co_return std::nullopt;
}

class IngestClientTest : public testing::Test {
protected:
    IngestClient client(const test::FakeBundle& bundle = {}) {
        const Configuration configuration(bundle);
        return {
            APIClient(
                session_,
                worker_,
                configuration,
                "https://api.test.example",
                noToken,
                IngestClient::requestTimeout),
            configuration.shortVersion()};
    }

    QCoro::Task<IngestClient::Ack> upload() {
        auto records = std::make_shared<IngestClient::Records>(1);
        records->front().guid = "g";
        return client().upload(records, 42);
    }

    test::FakeURLSession session_;
    Worker worker_;
};

} // namespace

TEST_F(IngestClientTest, AnUploadCarriesSourceClientRecordsAndWatermarkInOrder) {
    session_.enqueue(200, R"({"ok":true,"data":{"acceptedWatermark":42,"accepted":1}})");
    runTask(upload());
    const URLRequest& request = session_.requests().at(0);
    EXPECT_EQ(request.url, "https://api.test.example/api/v1/context/ingest");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, tavrin::Seconds(300));
    EXPECT_EQ(
        request.body,
        R"({"source":"imessage","client":"mac/0.0.0","records":[{"guid":"g","rowID":0,)"
        R"("participants":[],"participantNames":{},"participantEmails":{},"isFromMe":false,)"
        R"("sentAt":"1970-01-01T00:00:00Z","isGroupThread":false,"hasAttachments":false,)"
        R"("associatedMessageType":0,"bodyUnavailable":false}],"watermark":42})");
}

TEST_F(IngestClientTest, TheClientNameContainsTheBundlesVersion) {
    test::FakeBundle bundle;
    bundle.setInfo("CFBundleShortVersionString", "2.5");
    session_.enqueue(200, R"({"ok":true,"data":{"received":0}})");
    runTask(client(bundle).sendDiagnostics({}));
    EXPECT_EQ(session_.requests().at(0).body, R"({"client":"mac/2.5","lines":[]})");
}

TEST_F(IngestClientTest, AReplyMayLackTheOptionalCounts) {
    session_.enqueue(200, R"({"ok":true,"data":{"acceptedWatermark":42,"accepted":1}})");
    const IngestClient::Ack ack = runTask(upload());
    EXPECT_EQ(ack.acceptedWatermark, 42);
    EXPECT_EQ(ack.accepted, 1);
    EXPECT_FALSE(ack.contactsTouched);
    EXPECT_FALSE(ack.activitiesWritten);
    EXPECT_FALSE(ack.unknownCounterparty);
    EXPECT_FALSE(ack.bodiesIgnored);
}

TEST_F(IngestClientTest, TheOptionalCountsOfAReplyAreRead) {
    session_.enqueue(
        200,
        R"({"ok":true,"data":{"acceptedWatermark":9223372036854775807,"accepted":1,)"
        R"("contactsTouched":2,"activitiesWritten":3,"unknownCounterparty":4,"bodiesIgnored":5}})");
    const IngestClient::Ack ack = runTask(upload());
    EXPECT_EQ(ack.acceptedWatermark, 9223372036854775807);
    EXPECT_EQ(ack.contactsTouched, 2);
    EXPECT_EQ(ack.activitiesWritten, 3);
    EXPECT_EQ(ack.unknownCounterparty, 4);
    EXPECT_EQ(ack.bodiesIgnored, 5);
}

TEST_F(IngestClientTest, AReplyWithoutARequiredCountIsAnError) {
    session_.enqueue(200, R"({"ok":true,"data":{"acceptedWatermark":42}})");
    EXPECT_THROW(runTask(upload()), APIError);
    session_.enqueue(200, R"({"ok":true,"data":{"accepted":1}})");
    EXPECT_THROW(runTask(upload()), APIError);
}

TEST_F(IngestClientTest, RepeatedHintsCountOnce) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":["a","b","a"]}})");
    const std::unordered_set<std::string> expected = {"a", "b"};
    EXPECT_EQ(runTask(client().fetchKnownHandleHints()), expected);
    EXPECT_EQ(session_.requests().at(0).body, "{}");
    EXPECT_EQ(
        session_.requests().at(0).url, "https://api.test.example/api/v1/context/handle-digest");
}

TEST_F(IngestClientTest, HintsAreReadAsTheyAre) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":["ABC","abc"," x"]}})");
    const std::unordered_set<std::string> expected = {"ABC", "abc", " x"};
    EXPECT_EQ(runTask(client().fetchKnownHandleHints()), expected);
    EXPECT_EQ(session_.requests().at(0).method, "POST");
}

TEST_F(IngestClientTest, AFailedDigestThrowsItsError) {
    session_.enqueue(503, "");
    EXPECT_THROW(runTask(client().fetchKnownHandleHints()), APIError);
}

TEST_F(IngestClientTest, DiagnosticsNeverFail) {
    session_.enqueue(500, "");
    EXPECT_NO_THROW(runTask(client().sendDiagnostics({"one", "two"})));
    session_.enqueue(tavrin::URLErrorCode::TimedOut);
    EXPECT_NO_THROW(runTask(client().sendDiagnostics({"one"})));
    EXPECT_EQ(session_.requests().at(0).body, R"({"client":"mac/0.0.0","lines":["one","two"]})");
    EXPECT_EQ(session_.requests().at(0).url, "https://api.test.example/api/v1/context/diagnostics");
}

} // namespace orvel
