// SPDX-License-Identifier: Apache-2.0
#include "service/endpoints/FaultScript.h"

#include <gtest/gtest.h>

namespace orvel::test {
namespace {

using service::Fault;
using service::FaultScript;

Fault faultOn(std::string path, int status) {
    auto fault = Fault::answer(status, "");
    fault.path = std::move(path);
    return fault;
}

int statusTaken(FaultScript& script, std::string_view path) {
    const auto fault = script.take(path);
    return fault ? fault->reply->status : 0;
}

TEST(FaultScriptTest, IsEmptyAtFirst) {
    FaultScript script;
    EXPECT_FALSE(script.take("/a"));
    EXPECT_EQ(0U, script.pending());
}

TEST(FaultScriptTest, ReturnsFaultsInOrderTheGivenNumberOfTimes) {
    FaultScript script;
    script.add(faultOn("", 500), 2);
    script.add(faultOn("", 503), 1);
    EXPECT_EQ(3U, script.pending());

    EXPECT_EQ(500, statusTaken(script, "/a"));
    EXPECT_EQ(500, statusTaken(script, "/b"));
    EXPECT_EQ(503, statusTaken(script, "/a"));
    EXPECT_EQ(0, statusTaken(script, "/a"));
}

TEST(FaultScriptTest, SkipsFaultsOfOtherPaths) {
    FaultScript script;
    script.add(faultOn("/a", 500), 1);
    script.add(faultOn("/b", 503), 1);

    EXPECT_EQ(503, statusTaken(script, "/b"));
    EXPECT_EQ(0, statusTaken(script, "/b"));
    EXPECT_EQ(500, statusTaken(script, "/a"));
}

TEST(FaultScriptTest, IgnoresAFaultAddedZeroTimes) {
    FaultScript script;
    script.add(faultOn("", 500), 0);
    EXPECT_FALSE(script.take("/a"));
}

} // namespace
} // namespace orvel::test
