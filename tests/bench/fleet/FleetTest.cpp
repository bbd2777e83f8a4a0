// SPDX-License-Identifier: Apache-2.0
#include "bench/fleet/Fleet.h"

#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using bench::Fleet;
using testing::ElementsAreArray;
using Call = Fleet::Call;
using Second = Fleet::Second;
using Absence = Fleet::Absence;

struct Endpoint {
    Call call;
    std::string_view name;
    std::string_view path;
    bool isOfService;
};

constexpr std::array<Endpoint, Fleet::callCount> endpoints{{
    {Call::Digest, "digest", FakeService::digestPath, true},
    {Call::Ingest, "ingest", FakeService::ingestPath, true},
    {Call::Diagnostics, "diagnostics", FakeService::diagnosticsPath, true},
    {Call::DeviceToken, "device token", FakeService::deviceTokenPath, true},
    {Call::Profile, "profile", FakeService::profilePath, true},
    {Call::CustomToken, "custom token", FakeService::customTokenPath, false},
    {Call::Refresh, "refresh", FakeService::refreshPath, false},
}};

struct Request {
    Second second;
    Call call;

    auto operator<=>(const Request&) const = default;

    friend std::ostream& operator<<(std::ostream& out, const Request& request) {
        return out << request.second << " s "
                   << endpoints.at(static_cast<std::size_t>(request.call)).name;
    }
};

/// Runs a simulated agent and a real one through the same events. The real one has a real Messages
/// database; its clock, network and keychain are fakes.
class FleetTest : public AppModelFixture {
protected:
    static constexpr int historyRows = 3'200;
    static constexpr Second signInAfter = 47;

    FleetTest() {
        options_.retryDelays = uploadRetryDelays();
        with_.urlSession.setClock(with_.clock);
        // A flash would use the clock, too.
        with_.motionPreference.setReducesMotion(true);
        with_.letTheUserSignIn();
        addMessages(historyRows);
    }

    void start(bool allThreads) {
        if (allThreads) {
            with_.userDefaults.set("collection.scope", "allThreads");
        }
        fleet_.emplace(
            std::vector<Fleet::Newcomer>{{0, signInAfter, historyRows, allThreads}},
            Fleet::Options());
        begin();
        settle();
        runTo(signInAfter);
        runTask(model_->auth().signIn());
        settle();
    }

    void messagesArrive(Second second, int count) {
        runTo(second);
        addMessages(count);
        fleet_->addMessages(0, static_cast<std::uint32_t>(count));
    }

    void serviceIsAway(Second begin, Second end, Absence absence) {
        runTo(begin);
        fleet_->setOutage({begin, end, absence});
        FakeURLSession::Answer answer;
        if (absence == Absence::Refused) {
            answer = urlError(tavrin::URLErrorCode::CannotConnectToHost);
        }
        for (const Endpoint& endpoint : endpoints) {
            if (endpoint.isOfService) {
                with_.service.setAnswer(endpoint.path, answer);
            }
        }
    }

    void serviceIsBack(Second second) {
        runTo(second);
        for (const Endpoint& endpoint : endpoints) {
            with_.service.resetAnswer(endpoint.path);
        }
    }

    /// As `serviceIsBack`, and the connections of the outage are reset.
    void serviceIsBackWithResets(Second second) {
        serviceIsBack(second);
        EXPECT_EQ(with_.urlSession.inFlight(), 1U);
        with_.urlSession.failPending(tavrin::URLErrorCode::NetworkConnectionLost);
        settle();
    }

    /// Runs both up to this time. Events come at times at which no timer of the agent fires.
    void runTo(Second second) {
        const auto until = [&] {
            return tavrin::Seconds(second) - with_.clock.uptime();
        };
        while (with_.clock.untilNextTimer().value() < until()) {
            passWait();
            settle();
        }
        ASSERT_GT(with_.clock.untilNextTimer().value(), until());
        with_.clock.advance(until());
        fleet_->run(second, [this](Second now, const Fleet::Load& load) { record(now, load); });
    }

    std::vector<Request> simulated_;
    std::vector<Request> real_;

private:
    /// Waits until the model waits for the clock, and records its requests up to there.
    void settle() {
        ASSERT_TRUE(waitUntil([this] { return with_.clock.untilNextTimer().has_value(); }));
        const auto& requests = with_.urlSession.requests();
        const auto first = static_cast<std::ptrdiff_t>(real_.size());
        for (auto request = requests.begin() + first; request != requests.end(); ++request) {
            const auto* const endpoint = std::ranges::find_if(endpoints, [&](const Endpoint& one) {
                return request->url.find(one.path) != std::string::npos;
            });
            ASSERT_NE(endpoint, endpoints.end()) << request->url;
            real_.push_back(
                {static_cast<Second>(std::lround(with_.clock.uptime().count())), endpoint->call});
        }
    }

    void record(Second now, const Fleet::Load& load) {
        for (const Endpoint& endpoint : endpoints) {
            simulated_.insert(
                simulated_.end(), load.of(endpoint.call), Request{now, endpoint.call});
        }
    }

    std::optional<Fleet> fleet_;
};

class FleetOfTwoScopesTest : public FleetTest, public testing::WithParamInterface<bool> {};

} // namespace

TEST_P(FleetOfTwoScopesTest, SendsTheRequestsOfARealAgentAtTheSameTimes) {
    start(GetParam());
    // Between two batches of the history.
    serviceIsAway(87, 117, Absence::Refused);
    serviceIsBack(117);
    // With known contacts only, the last retry is in the last minute of the first token.
    serviceIsAway(2'882, 3'402, Absence::Refused);
    messagesArrive(3'002, 3);
    serviceIsBack(3'402);
    // More than a batch.
    messagesArrive(5'002, 700);
    serviceIsAway(20'007, 30'807, Absence::Refused);
    messagesArrive(21'002, 2);
    serviceIsBack(30'807);
    messagesArrive(49'002, 1);
    serviceIsAway(50'002, 50'902, Absence::Silent);
    messagesArrive(50'007, 4);
    serviceIsBack(50'902);
    serviceIsAway(70'002, 70'902, Absence::Reset);
    messagesArrive(70'007, 5);
    serviceIsBackWithResets(70'902);
    runTo(86'402);

    EXPECT_EQ(with_.service.guids().size(), static_cast<std::size_t>(messages_));
    for (const Endpoint& endpoint : endpoints) {
        EXPECT_GT(std::ranges::count(real_, endpoint.call, &Request::call), 0) << endpoint.name;
    }
    std::ranges::sort(real_);
    std::ranges::sort(simulated_);
    EXPECT_THAT(simulated_, ElementsAreArray(real_));
}

INSTANTIATE_TEST_SUITE_P(
    Scopes, FleetOfTwoScopesTest, testing::Values(false, true), [](const auto& scope) {
        return scope.param ? "AllThreads" : "KnownContactsOnly";
    });

TEST(FleetOfManyTest, ACopyGoesOnLikeTheOriginal) {
    std::vector<Fleet::Newcomer> newcomers(1'000);
    for (std::size_t agent = 0; agent < newcomers.size(); ++agent) {
        newcomers[agent] = {static_cast<Second>(agent), std::nullopt, 10'000, agent % 2 == 0};
    }
    Fleet::Options options;
    options.messagesPerDay = 50;
    Fleet fleet(newcomers, options);
    const auto requestsUntil = [](Fleet& one, Second end) {
        std::vector<std::uint64_t> requests;
        one.run(end, [&](Second, const Fleet::Load& load) {
            requests.insert(requests.end(), load.requests.begin(), load.requests.end());
        });
        return requests;
    };
    requestsUntil(fleet, 3'000);
    fleet.setOutage({3'000, 4'000, Absence::Refused});
    Fleet copy = fleet;
    EXPECT_EQ(requestsUntil(copy, 9'000), requestsUntil(fleet, 9'000));
    EXPECT_EQ(copy.now(), 9'000U);
    EXPECT_EQ(copy.size(), 1'000U);
}

TEST(FleetOfManyTest, FindsAsManyMessagesAsArriveOnAverage) {
    Fleet::Options options;
    options.messagesPerDay = 50;
    Fleet fleet(std::vector<Fleet::Newcomer>(100), options);
    std::uint64_t messages = 0;
    fleet.run(10 * 86'400, [&](Second, const Fleet::Load& load) {
        // Without a history, the first messages of an agent count as its history.
        messages += load.historyRows + load.newMessages;
    });
    EXPECT_NEAR(static_cast<double>(messages), 50'000, 1'500);
}

} // namespace orvel::test
