// SPDX-License-Identifier: Apache-2.0
#include "tests/service/ServiceTest.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>

namespace orvel::test {
namespace {

using service::Fault;
using testing::HasSubstr;

/// Longer than any test can take.
constexpr std::chrono::milliseconds forever = std::chrono::hours(24);

class LocalServiceFaultsTest : public ServiceTest {
protected:
    void SetUp() override { start(); }
};

TEST_F(LocalServiceFaultsTest, AnswersWithTheScriptedStatusAndBody) {
    service_->script(Fault::answer(502, "<html>Bad gateway"));

    const auto reply = client().post(ingestPath, batch({"a"}));

    EXPECT_EQ(502, reply.status);
    EXPECT_EQ("<html>Bad gateway", reply.body);
    EXPECT_EQ(0U, service_->storedCount());
}

TEST_F(LocalServiceFaultsTest, AnswersWithAStatusAndNoBody) {
    service_->script(Fault::answer(503, ""));

    const auto reply = client().post(digestPath, "{}");

    EXPECT_EQ(503, reply.status);
    EXPECT_EQ("", reply.body);
}

TEST_F(LocalServiceFaultsTest, AnswersWithAnErrorInTheEnvelope) {
    service_->script(Fault::refusal(401, "session_expired", "The session has expired."));

    const auto reply = client().post(digestPath, "{}");

    EXPECT_EQ(401, reply.status);
    EXPECT_EQ(
        R"({"ok":false,"error":"The session has expired.","code":"session_expired"})", reply.body);
}

TEST_F(LocalServiceFaultsTest, ResetsTheConnectionBeforeTheFirstByte) {
    service_->script(Fault::reset());

    const auto reply = client().post(ingestPath, batch({"a"}));

    EXPECT_EQ(CURLE_RECV_ERROR, reply.outcome);
    EXPECT_THAT(reply.problem, HasSubstr("Connection reset by peer"));
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ("", reply.headers);
    EXPECT_EQ(0U, service_->storedCount());
}

TEST_F(LocalServiceFaultsTest, CutsAReplyOff) {
    service_->script(Fault::cutOff());

    const auto reply = client().post(ingestPath, batch({"a"}));

    EXPECT_EQ(CURLE_PARTIAL_FILE, reply.outcome) << reply.problem;
    EXPECT_EQ(200, reply.status);
    EXPECT_FALSE(reply.body.empty());
    EXPECT_EQ(0U, service_->storedCount());
}

TEST_F(LocalServiceFaultsTest, KeepsTheBatchWhoseReplyIsLost) {
    for (const auto& fault : {Fault::acceptThenReset(), Fault::acceptThenCutOff()}) {
        const auto guid = std::to_string(service_->storedCount());
        service_->script(fault);
        const auto before = service_->storedCount();

        EXPECT_NE(CURLE_OK, client().post(ingestPath, batch({guid})).outcome);

        EXPECT_EQ(before + 1, service_->storedCount());
        const auto again = client().post(ingestPath, batch({guid}));
        EXPECT_EQ(1, again.data().at("accepted"));
        EXPECT_EQ(0, again.data().at("activitiesWritten"));
    }
}

TEST_F(LocalServiceFaultsTest, DelaysAReply) {
    service_->script(Fault::delayed(forever));
    auto client = this->client();
    client.timeout = std::chrono::milliseconds(200);

    EXPECT_EQ(CURLE_OPERATION_TIMEDOUT, client.post(digestPath, "{}").outcome);
    EXPECT_EQ(1U, service_->requestCount());
}

TEST_F(LocalServiceFaultsTest, SendsTheNormalReplyAfterADelay) {
    service_->script(Fault::delayed(std::chrono::milliseconds(1)));

    EXPECT_EQ(1, client().post(ingestPath, batch({"a"})).data().at("activitiesWritten"));
}

TEST_F(LocalServiceFaultsTest, EndsDelaysWhenItStops) {
    service_->script(Fault::delayed(forever));
    auto reply = std::async(
        std::launch::async, [client = client()] { return client.post(ingestPath, batch({"a"})); });
    ASSERT_TRUE(service_->waitForRequests(1, std::chrono::minutes(1)));

    service_->stop();

    EXPECT_EQ(200, reply.get().status);
}

TEST_F(LocalServiceFaultsTest, AppliesAFaultTheGivenNumberOfTimes) {
    service_->script(Fault::answer(500, ""), 2);
    service_->script(Fault::reset());

    EXPECT_EQ(500, client().post(digestPath, "{}").status);
    EXPECT_EQ(500, client().post(digestPath, "{}").status);
    EXPECT_EQ(0, client().post(digestPath, "{}").status);
    EXPECT_EQ(200, client().post(digestPath, "{}").status);
    EXPECT_EQ(4U, service_->requestCount());
}

TEST_F(LocalServiceFaultsTest, AppliesAFaultToOnePathOnly) {
    auto fault = Fault::answer(500, "");
    fault.path = ingestPath;
    service_->script(fault);

    EXPECT_EQ(200, client().post(digestPath, "{}").status);
    EXPECT_EQ(500, client().post(ingestPath, batch({"a"})).status);
    EXPECT_EQ(1U, service_->requestCount(ingestPath));
}

TEST_F(LocalServiceFaultsTest, DoesNotApplyFaultsToThePage) {
    service_->script(Fault::answer(500, ""));

    EXPECT_EQ(200, client().get("/").status);
    EXPECT_EQ(500, client().post(digestPath, "{}").status);
}

TEST_F(LocalServiceFaultsTest, ClearsFaults) {
    service_->script(Fault::answer(500, ""), 10);

    service_->clearFaults();

    EXPECT_EQ(200, client().post(digestPath, "{}").status);
}

} // namespace
} // namespace orvel::test
