// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/TokenRefresher.h"
#include "OrvelAgent/app/CollectionLoop.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanDefaults.h"
#include "OrvelAgent/scan/UploadRetryDelays.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace orvel::bench {

/// A simulation of many agents, without network and database: when each of them sends which
/// requests. It follows `CollectionLoop`, `ScanRun`, `ScanWalk` and `TokenRefresher` and takes its
/// waits from them; `FleetTest` compares it with a real `AppModel`.
///
/// The clock counts whole seconds. A scan and an answered request take no time. The identity
/// provider always answers. Each batch of the history contains a message to upload. Copyable, so
/// that several futures can be simulated from one state. The same input gives the same result.
class Fleet final {
public:
    /// Seconds since the start of the simulation.
    using Second = std::uint32_t;

    enum class Call : std::uint8_t {
        Digest,
        Ingest,
        Diagnostics,
        DeviceToken,
        Profile,
        /// This and the next go to the identity provider.
        CustomToken,
        Refresh,
    };
    static constexpr std::size_t callCount = 7;

    /// What all agents send in one second.
    struct Load {
        [[nodiscard]] std::uint64_t of(Call call) const {
            return requests[static_cast<std::size_t>(call)];
        }

        /// By `Call`, including those that the service did not answer.
        std::array<std::uint64_t, callCount> requests{};
        std::uint64_t unanswered = 0;
        /// Rows of the accepted batches of history, including rows that are not uploaded.
        std::uint64_t historyRows = 0;
        /// Other accepted messages.
        std::uint64_t newMessages = 0;
    };

    struct Newcomer {
        /// When the process starts.
        Second start = 0;
        /// How long the user then needs to sign in. No value: there is a stored session.
        std::optional<Second> signInAfter;
        /// The rows of the Messages database at the first scan, apart from later messages.
        std::uint32_t historyRows = 0;
        /// Collects all conversations, not only those with known contacts.
        bool allThreads = false;
    };

    struct Options {
        /// New messages to upload, on average. They come at random.
        double messagesPerDay = 0;
        /// A user whose sign-in fails tries again after this time.
        Second secondSignIn = 60;
        /// Varies each wait after a scan by up to this share. The agent does not.
        double jitter = 0;
        std::uint64_t seed = 1;
    };

    enum class Absence {
        /// Connections are refused at once.
        Refused,
        /// There is no answer until the request's timeout, even if the outage ends before.
        Silent,
        /// As `Silent`, but at the end of the outage all waiting requests fail at once, for example
        /// because a load balancer restarts.
        Reset,
    };

    struct Outage {
        Second begin = 0;
        /// The first second with answers.
        Second end = 0;
        Absence absence = Absence::Refused;
    };

    Fleet(const std::vector<Newcomer>& newcomers, const Options& options);

    /// Replaces the previous outage.
    void setOutage(const Outage& outage) { outage_ = outage; }
    void setOptions(const Options& options) { options_ = options; }

    /// The agent finds these messages in its next scan.
    void addMessages(std::size_t agent, std::uint32_t count) { agents_[agent].arrived += count; }

    /// Simulates up to `end`, exclusively. Calls back for each second, also if nothing is sent.
    void run(Second end, const std::function<void(Second, const Load&)>& onSecond);

    /// The first second that was not simulated.
    [[nodiscard]] Second now() const { return now_; }
    [[nodiscard]] std::size_t size() const { return agents_.size(); }

private:
    /// What an agent does next.
    enum class Step : std::uint8_t { SignIn, Scan, EndDigest, Upload, EndUpload, EndDiagnostics };
    enum class Reply { Answer, Refusal, Silence };

    struct alignas(32) Agent {
        /// The next agent with the same time.
        std::uint32_t next;
        /// When the next request first refreshes the token.
        Second tokenUntil;
        /// When the newest messages were last counted. Before that, the start of the process.
        Second lastLook;
        /// Rows of the history that were not sent yet.
        std::uint32_t history;
        /// Newer messages, in the copy of the database and outside it.
        std::uint32_t pending;
        std::uint32_t arrived;
        Step step;
        std::uint8_t retries;
        std::uint8_t failures;
        bool allThreads : 1;
        bool hasWatermark : 1;
        bool hasFailed : 1;
    };

    static constexpr std::uint32_t none = ~0U;
    /// More than the longest wait, which is a day: the start of the last newcomer.
    static constexpr Second wheelSize = 1U << 17U;

    void handle(std::uint32_t index);
    void signIn(std::uint32_t index);
    void scan(std::uint32_t index);
    void endDigest(std::uint32_t index);
    void upload(std::uint32_t index);
    void endUpload(std::uint32_t index);
    void sendDiagnostics(std::uint32_t index);
    void endScan(std::uint32_t index);

    /// Counts the request, and one for a token before it if that is needed.
    Reply send(Agent& agent, Call call);
    void count(Call call) { ++load_.requests[static_cast<std::size_t>(call)]; }
    void takeSnapshot(Agent& agent);
    void schedule(std::uint32_t index, Second delay, Step step);
    [[nodiscard]] bool isAway() const { return now_ >= outage_.begin && now_ < outage_.end; }
    /// How long a request waits that gets no answer.
    [[nodiscard]] Second silence() const;
    [[nodiscard]] Second waitAfterScan(const Agent& agent);
    /// From 0 to 1, exclusively.
    double random();
    std::uint32_t poisson(Second duration);

    Options options_;
    std::vector<Agent> agents_;
    /// The first agent of each second, modulo the size.
    std::vector<std::uint32_t> wheel_;
    std::vector<double> retryDelays_ = uploadRetryDelays();
    Outage outage_;
    Second now_ = 0;
    Load load_;
    std::uint64_t randomState_;
    /// The chance of no message in that time.
    Second quietTime_ = 0;
    double quietChance_ = 1;
};

} // namespace orvel::bench
