// SPDX-License-Identifier: Apache-2.0
#include "tests/service/ServiceTest.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

namespace orvel::test {
namespace {

constexpr const char* faultsPath = "/control/faults";

class ControlEndpointsTest : public ServiceTest {
protected:
    void SetUp() override {
        options_.hasControl = true;
        start();
    }

    /// The reply to a digest request, sent after the fault was scripted.
    [[nodiscard]] ClientReply digestAfter(const std::string& fault) const {
        const auto scripted = client().post(faultsPath, fault);
        EXPECT_EQ(200, scripted.status) << scripted.body;
        return client().post(digestPath, "{}");
    }
};

TEST_F(ControlEndpointsTest, IsAbsentUnlessEnabled) {
    options_.hasControl = false;
    start();

    EXPECT_EQ(404, client().post(faultsPath, R"({"fault":"reset"})").status);
    EXPECT_EQ(404, client().send("DELETE", faultsPath, {}).status);
    EXPECT_EQ(404, client().get("/control/stats").status);
}

TEST_F(ControlEndpointsTest, RequiresAToken) {
    auto client = this->client();
    client.token.clear();

    EXPECT_EQ("unauthorized", client.post(faultsPath, R"({"fault":"reset"})").code());
    EXPECT_EQ("unauthorized", client.get("/control/stats").code());
}

TEST_F(ControlEndpointsTest, ScriptsAStatus) {
    EXPECT_EQ(503, digestAfter(R"({"fault":"status"})").status);
    EXPECT_EQ("Sorry", digestAfter(R"({"fault":"status","status":500,"body":"Sorry"})").body);
    EXPECT_EQ(
        R"({"ok":false,"error":"Slow down.","code":"busy"})",
        digestAfter(R"({"fault":"status","status":429,"code":"busy","error":"Slow down."})").body);
}

TEST_F(ControlEndpointsTest, ScriptsBrokenReplies) {
    EXPECT_EQ(CURLE_RECV_ERROR, digestAfter(R"({"fault":"reset"})").outcome);
    EXPECT_EQ(CURLE_PARTIAL_FILE, digestAfter(R"({"fault":"cut-off"})").outcome);
    EXPECT_EQ(CURLE_RECV_ERROR, digestAfter(R"({"fault":"accept-then-reset"})").outcome);
    EXPECT_EQ(CURLE_PARTIAL_FILE, digestAfter(R"({"fault":"accept-then-cut-off"})").outcome);
}

TEST_F(ControlEndpointsTest, ScriptsADelay) {
    const auto fault = R"({"fault":"delay","delayMilliseconds":86400000})";
    ASSERT_EQ(200, client().post(faultsPath, fault).status);
    auto client = this->client();
    client.timeout = std::chrono::milliseconds(200);

    EXPECT_EQ(CURLE_OPERATION_TIMEDOUT, client.post(digestPath, "{}").outcome);
}

TEST_F(ControlEndpointsTest, ScriptsAFaultForSomeRequestsOfAPath) {
    const auto fault = R"({"fault":"status","times":2,"path":"/api/v1/context/ingest"})";
    EXPECT_EQ(200, digestAfter(fault).status);

    EXPECT_EQ(503, client().post(ingestPath, batch({"a"})).status);
    EXPECT_EQ(503, client().post(ingestPath, batch({"a"})).status);
    EXPECT_EQ(200, client().post(ingestPath, batch({"a"})).status);
}

TEST_F(ControlEndpointsTest, ClearsFaults) {
    ASSERT_EQ(200, client().post(faultsPath, R"({"fault":"reset","times":9})").status);

    EXPECT_EQ(200, client().send("DELETE", faultsPath, {}).status);

    EXPECT_EQ(200, client().post(digestPath, "{}").status);
}

TEST_F(ControlEndpointsTest, RefusesInvalidFaults) {
    const std::vector<std::string> bodies{
        "{}",
        R"({"fault":"earthquake"})",
        R"({"fault":1})",
        R"({"fault":"reset","times":0})",
        R"({"fault":"reset","times":-1})",
        R"({"fault":"reset","path":1})",
        R"({"fault":"delay","delayMilliseconds":-1})",
        R"({"fault":"delay","delayMilliseconds":86400001})",
        R"({"fault":"status","status":99})",
        R"({"fault":"status","status":600})",
    };
    for (const auto& body : bodies) {
        SCOPED_TRACE(body);
        EXPECT_EQ("invalid_request", client().post(faultsPath, body).code());
    }
    EXPECT_EQ(200, client().post(digestPath, "{}").status);
}

TEST_F(ControlEndpointsTest, ScriptsAnErrorOfTheIdentityProvider) {
    const auto fault = R"({"fault":"status","status":400,"path":"/identity/v1/token",)"
                       R"("body":"{\"error\":{\"message\":\"INVALID_GRANT\"}}"})";
    ASSERT_EQ(200, client().post(faultsPath, fault).status);

    const auto reply = client().post("/identity/v1/token", "");

    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(R"({"error":{"message":"INVALID_GRANT"}})", reply.body);
    EXPECT_THAT(reply.headers, testing::HasSubstr("Content-Type: application/json\r\n"));
}

TEST_F(ControlEndpointsTest, EndsSessions) {
    const auto first = service_->signIn("sample-account-1");
    const auto second = service_->signIn("sample-account-2");
    auto one = client();
    one.token = first.idToken;
    auto other = client();
    other.token = second.idToken;

    const auto body = R"({"uid":"sample-account-1","message":"INVALID_GRANT","endIDTokens":true})";
    EXPECT_EQ(1, client().post("/control/sessions/revoke", body).data().at("sessions"));
    EXPECT_EQ("session_expired", one.post(digestPath, "{}").code());
    EXPECT_EQ(200, other.post(digestPath, "{}").status);

    EXPECT_EQ(2, client().post("/control/sessions/revoke", "{}").data().at("sessions"));
    EXPECT_EQ(200, other.post(digestPath, "{}").status);

    EXPECT_EQ(2, client().post("/control/id-tokens/expire", "{}").data().at("idTokens"));
    EXPECT_EQ("unauthorized", other.post(digestPath, "{}").code());
}

TEST_F(ControlEndpointsTest, DisablesUsers) {
    const std::string path = "/control/users/disable";
    EXPECT_EQ(200, client().post(path, R"({"uid":"sample-account-1"})").status);
    EXPECT_THROW(static_cast<void>(service_->signIn("sample-account-1")), service::IdentityRefusal);

    EXPECT_EQ(200, client().post(path, R"({"uid":"sample-account-1","disabled":false})").status);
    EXPECT_NO_THROW(static_cast<void>(service_->signIn("sample-account-1")));
}

TEST_F(ControlEndpointsTest, RefusesInvalidRequestsToEndSessions) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"/control/sessions/revoke", ""},
        {"/control/sessions/revoke", R"({"message":""})"},
        {"/control/sessions/revoke", R"({"uid":1})"},
        {"/control/sessions/revoke", R"({"endIDTokens":1})"},
        {"/control/users/disable", "{}"},
        {"/control/users/disable", R"({"uid":"nobody"})"},
        {"/control/users/disable", R"({"uid":"sample-account-1","disabled":"yes"})"},
    };
    for (const auto& [path, body] : cases) {
        EXPECT_EQ("invalid_request", client().post(path, body).code()) << path << body;
    }
    EXPECT_NO_THROW(static_cast<void>(service_->signIn("sample-account-1")));
}

TEST_F(ControlEndpointsTest, ReturnsCountsOfWhatWasReceived) {
    static_cast<void>(client().post(ingestPath, batch({"a", "b"})));
    static_cast<void>(digestAfter(R"({"fault":"reset"})"));
    static_cast<void>(client().post(faultsPath, R"({"fault":"reset","times":3})"));

    const boost::json::object expected{
        {"records", 2},
        {"batches", 1},
        {"diagnosticLines", 0},
        {"pendingFaults", 3},
        {"requests", 2},
        {"requestsByPath", {{ingestPath, 1}, {digestPath, 1}}},
    };
    EXPECT_EQ(expected, client().get("/control/stats").data());
}

} // namespace
} // namespace orvel::test
