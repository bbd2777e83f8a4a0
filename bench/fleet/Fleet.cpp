// SPDX-License-Identifier: Apache-2.0
#include "bench/fleet/Fleet.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

namespace orvel::bench {

namespace {

using Second = Fleet::Second;

constexpr Second seconds(tavrin::Seconds duration) {
    return static_cast<Second>(duration.count());
}

constexpr Second tokenUse =
    seconds(FirebaseIdentity::defaultLifetime - TokenRefresher::leastRemainingLife);
constexpr Second requestTimeout = seconds(IngestClient::requestTimeout);
constexpr Second recheck = seconds(CollectionLoop::blockedRecheck);
constexpr auto batchSize = static_cast<std::uint32_t>(ScanDefaults::batchSize);
constexpr double day = 86'400;

} // namespace

Fleet::Fleet(const std::vector<Newcomer>& newcomers, const Options& options)
    : options_(options), wheel_(wheelSize, none), randomState_(options.seed) {
    agents_.reserve(newcomers.size());
    for (const Newcomer& newcomer : newcomers) {
        const auto index = static_cast<std::uint32_t>(agents_.size());
        Agent& agent = agents_.emplace_back();
        agent.lastLook = newcomer.start;
        agent.history = newcomer.historyRows;
        agent.allThreads = newcomer.allThreads;
        schedule(
            index,
            newcomer.start + newcomer.signInAfter.value_or(0),
            newcomer.signInAfter ? Step::SignIn : Step::Scan);
    }
}

void Fleet::run(Second end, const std::function<void(Second, const Load&)>& onSecond) {
    for (; now_ < end; ++now_) {
        load_ = {};
        std::uint32_t index = std::exchange(wheel_[now_ % wheelSize], none);
        while (index != none) {
            const std::uint32_t next = agents_[index].next;
            // Agents with the same time are far apart in memory.
            __builtin_prefetch(&agents_[next == none ? index : next]);
            handle(index);
            index = next;
        }
        onSecond(now_, load_);
    }
}

void Fleet::handle(std::uint32_t index) {
    switch (agents_[index].step) {
    case Step::SignIn:
        return signIn(index);
    case Step::Scan:
        return scan(index);
    case Step::EndDigest:
        return endDigest(index);
    case Step::Upload:
        return upload(index);
    case Step::EndUpload:
        return endUpload(index);
    case Step::EndDiagnostics:
        return endScan(index);
    }
}

void Fleet::signIn(std::uint32_t index) {
    Agent& agent = agents_[index];
    count(Call::DeviceToken);
    if (isAway()) {
        ++load_.unanswered;
        schedule(index, options_.secondSignIn, Step::SignIn);
        return;
    }
    count(Call::CustomToken);
    agent.tokenUntil = now_ + tokenUse;
    send(agent, Call::Profile);
    // The blocked loop finds the session at its next check.
    const Second sinceStart = now_ - agent.lastLook;
    schedule(index, recheck - sinceStart % recheck, Step::Scan);
}

void Fleet::scan(std::uint32_t index) {
    Agent& agent = agents_[index];
    switch (send(agent, Call::Digest)) {
    case Reply::Answer:
        takeSnapshot(agent);
        return upload(index);
    case Reply::Refusal:
        return endDigest(index);
    case Reply::Silence:
        return schedule(index, silence(), Step::EndDigest);
    }
}

void Fleet::endDigest(std::uint32_t index) {
    Agent& agent = agents_[index];
    if (agent.allThreads) {
        takeSnapshot(agent);
        return upload(index);
    }
    // Without the list the scan is skipped, and with it the diagnostics.
    agent.hasFailed = true;
    endScan(index);
}

void Fleet::upload(std::uint32_t index) {
    Agent& agent = agents_[index];
    while (agent.history > 0 || agent.pending > 0) {
        const Reply reply = send(agent, Call::Ingest);
        if (reply == Reply::Refusal) {
            return endUpload(index);
        }
        if (reply == Reply::Silence) {
            return schedule(index, silence(), Step::EndUpload);
        }
        agent.retries = 0;
        agent.hasWatermark = true;
        const bool isHistory = agent.history > 0;
        std::uint32_t& left = isHistory ? agent.history : agent.pending;
        const std::uint32_t sent = std::min(left, batchSize);
        left -= sent;
        (isHistory ? load_.historyRows : load_.newMessages) += sent;
        if (agent.history > 0) {
            return schedule(index, seconds(ScanDefaults::backfillPause), Step::Upload);
        }
    }
    sendDiagnostics(index);
}

void Fleet::endUpload(std::uint32_t index) {
    Agent& agent = agents_[index];
    if (agent.retries < retryDelays_.size()) {
        const double delay = retryDelays_[agent.retries++];
        return schedule(index, static_cast<Second>(delay), Step::Upload);
    }
    agent.retries = 0;
    agent.hasFailed = true;
    sendDiagnostics(index);
}

void Fleet::sendDiagnostics(std::uint32_t index) {
    if (send(agents_[index], Call::Diagnostics) == Reply::Silence) {
        return schedule(index, silence(), Step::EndDiagnostics);
    }
    endScan(index);
}

void Fleet::endScan(std::uint32_t index) {
    Agent& agent = agents_[index];
    constexpr std::uint8_t manyFailures = 100;
    agent.failures = agent.hasFailed ? std::min<std::uint8_t>(agent.failures + 1, manyFailures) : 0;
    agent.hasFailed = false;
    schedule(index, waitAfterScan(agent), Step::Scan);
}

Fleet::Reply Fleet::send(Agent& agent, Call call) {
    if (now_ >= agent.tokenUntil) {
        count(Call::Refresh);
        agent.tokenUntil = now_ + tokenUse;
    }
    count(call);
    if (!isAway()) {
        return Reply::Answer;
    }
    ++load_.unanswered;
    return outage_.absence == Absence::Refused ? Reply::Refusal : Reply::Silence;
}

void Fleet::takeSnapshot(Agent& agent) {
    agent.pending += agent.arrived + poisson(now_ - agent.lastLook);
    agent.arrived = 0;
    agent.lastLook = now_;
    if (!agent.hasWatermark) {
        // The first batch of the history starts at the newest message.
        agent.history += std::exchange(agent.pending, 0);
    }
}

void Fleet::schedule(std::uint32_t index, Second delay, Step step) {
    assert(delay < wheelSize);
    Agent& agent = agents_[index];
    agent.step = step;
    std::uint32_t& first = wheel_[(now_ + delay) % wheelSize];
    agent.next = std::exchange(first, index);
}

Second Fleet::silence() const {
    return outage_.absence == Absence::Reset ? std::min(requestTimeout, outage_.end - now_)
                                             : requestTimeout;
}

Second Fleet::waitAfterScan(const Agent& agent) {
    const tavrin::Seconds wait =
        agent.failures < 1 ? CollectionLoop::scanInterval : CollectionLoop::backoff(agent.failures);
    if (options_.jitter <= 0) {
        return seconds(wait);
    }
    return static_cast<Second>(wait.count() * (1 + options_.jitter * (2 * random() - 1)));
}

double Fleet::random() {
    // SplitMix64.
    randomState_ += 0x9E3779B97F4A7C15U;
    std::uint64_t bits = randomState_;
    bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
    bits ^= bits >> 31U;
    return (static_cast<double>(bits >> 11U) + 0.5) / 9007199254740992.0;
}

std::uint32_t Fleet::poisson(Second duration) {
    if (options_.messagesPerDay <= 0) {
        return 0;
    }
    if (duration != quietTime_) {
        quietTime_ = duration;
        quietChance_ = std::exp(-options_.messagesPerDay * duration / day);
    }
    std::uint32_t messages = 0;
    for (double product = random(); product > quietChance_; product *= random()) {
        ++messages;
    }
    return messages;
}

} // namespace orvel::bench
