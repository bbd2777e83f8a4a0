// SPDX-License-Identifier: Apache-2.0
#include "tests/service/ServiceTest.h"

#include <string>
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

    /// What the next digest request gets after the fault was scripted.
    [[nodiscard]] ClientReply digestAfter(const std::string& fault) const {
        const auto scripted = client().post(faultsPath, fault);
        EXPECT_EQ(200, scripted.status) << scripted.body;
        return client().post(digestPath, "{}");
    }
};

TEST_F(ControlEndpointsTest, IsNotThereUnlessEnabled) {
    options_.hasControl = false;
    start();

    EXPECT_EQ(404, client().post(faultsPath, R"({"fault":"reset"})").status);
    EXPECT_EQ(404, client().send("DELETE", faultsPath, {}).status);
    EXPECT_EQ(404, client().get("/control/stats").status);
}

TEST_F(ControlEndpointsTest, WantsAToken) {
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

TEST_F(ControlEndpointsTest, ForgetsFaults) {
    ASSERT_EQ(200, client().post(faultsPath, R"({"fault":"reset","times":9})").status);

    EXPECT_EQ(200, client().send("DELETE", faultsPath, {}).status);

    EXPECT_EQ(200, client().post(digestPath, "{}").status);
}

TEST_F(ControlEndpointsTest, RefusesImproperFaults) {
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

TEST_F(ControlEndpointsTest, TellsWhatWasReceived) {
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
