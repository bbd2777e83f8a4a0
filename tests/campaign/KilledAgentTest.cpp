// SPDX-License-Identifier: Apache-2.0
//
// The desktop application, signed in and without a screen, which is killed at random calls between
// its start and its end. Needs a private session with a keyring (tests/support/private-session).
#include "core/UserDefaults.h"
#include "core/messages/SQLiteDatabase.h"
#include "platform/Platform.h"
#include "tests/campaign/SignInHome.h"
#include "tests/support/Campaign.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/linux/FaultAtCall.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace orvel::test {

namespace {

constexpr int killsPerSeed = 8;

/// A user who is signed in, has messages and chose the wider scope.
class AgentHome final {
public:
    explicit AgentHome(unsigned seed) {
        const std::filesystem::path database = home_.home() / "Library" / "Messages" / "chat.db";
        std::filesystem::create_directories(database.parent_path());
        // Fewer than a batch, after which the agent pauses.
        requireSuccess(runProgram(
            {MAKE_SAMPLE_CHATDB,
             database.string(),
             "--messages",
             "200",
             "--seed",
             std::to_string(seed),
             "--no-two-chat"}));
        std::filesystem::create_directories(home_.settings().parent_path());
        std::ofstream(home_.settings()) << "collection.scope=allThreads\n";
        const SignInHome::Run preview = home_.run(
            {"--preview",
             "--scope",
             "allThreads",
             "--source",
             database.string(),
             "--address-book",
             "none"});
        requireSuccess(preview);
        std::istringstream lines(preview.output);
        for (std::string line; std::getline(lines, line);) {
            expected_.insert(guidOf(line));
        }
        requireSuccess(home_.signIn(service::sampleAccounts().front()));
    }

    /// Runs the agent until all messages are stored, then ends it. Returns the status.
    int runAgent(const SignInHome::Variables& variables = {}) {
        SignInHome::Variables all = variables;
        all.insert({{"QT_QPA_PLATFORM", "offscreen"}, {"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}});
        const std::size_t before = scans();
        Program agent(home_.options({ORVEL_AGENT}, all));
        std::optional<int> status;
        const bool isDone = waitUntil(
            [&] {
                status = agent.waitFor(std::chrono::milliseconds(0));
                return status || (scans() > before && hasFinished());
            },
            std::chrono::seconds(40));
        if (!isDone) {
            throw std::runtime_error("the agent does not send its messages: " + agent.errors());
        }
        agent.signal(SIGTERM);
        return SignInHome::finish(agent).status;
    }

    [[nodiscard]] std::set<std::string> stored() const {
        std::set<std::string> guids;
        tavrin::SQLiteDatabase database(home_.store().string());
        database.query("SELECT json FROM records", {}, [&](const auto& row) {
            guids.insert(guidOf(row.string(0).value()));
        });
        return guids;
    }

    [[nodiscard]] const std::set<std::string>& expected() const { return expected_; }
    [[nodiscard]] std::size_t uploads() {
        return home_.service().requestCount("/api/v1/context/ingest");
    }
    [[nodiscard]] SignInHome& home() { return home_; }

private:
    static std::string guidOf(const std::string& record) {
        return std::string(boost::json::parse(record).at("guid").as_string());
    }

    static void requireSuccess(const SignInHome::Run& run) {
        if (run.status != 0) {
            throw std::runtime_error("the home cannot be prepared: " + run.errors);
        }
    }

    SignInHome::Run runProgram(const std::vector<std::string>& arguments) {
        Program program(home_.options(arguments));
        return SignInHome::finish(program);
    }

    /// The number of scans that have ended. The agent sends its log lines after each.
    [[nodiscard]] std::size_t scans() {
        return home_.service().requestCount("/api/v1/context/diagnostics");
    }

    /// Whether the messages are stored, and the progress is on disk.
    bool hasFinished() {
        if (home_.service().storedCount() < expected_.size()) {
            return false;
        }
        std::ifstream file(home_.settings());
        std::stringstream text;
        text << file.rdbuf();
        return text.str().find("messages.backfill.done=true") != std::string::npos;
    }

    SignInHome home_;
    std::set<std::string> expected_;
};

/// The calls of an agent that nothing disturbs.
CallCounts countCalls() {
    AgentHome agent(1);
    const FaultAtCall calls(agent.home() / "calls", "orvel-agent");
    if (agent.runAgent(calls.counting()) != 0) {
        throw std::runtime_error("an agent without a kill failed");
    }
    return calls.counts();
}

class KilledAgents final {
public:
    KilledAgents(unsigned seed, const CallCounts& counts)
        : random_(seed), counts_(counts), agent_(seed) {}

    CampaignResult run() {
        while (result_.units < killsPerSeed && result_.findings.empty()) {
            const CallFault point = FaultAtCall::chooseKill(counts_, random_);
            const int status = agent_.runAgent(calls_.with(point));
            if (status != 128 + SIGKILL) {
                // With the messages stored, it had less to do.
                if (status != 0) {
                    find(fmt::format("the agent ended with status {}", status));
                }
                break;
            }
            ++result_.units;
            story_ += (story_.empty() ? "" : ", ") + describe(point);
        }
        if (const int status = agent_.runAgent(); status != 0) {
            find(fmt::format("the last agent ended with status {}", status));
        }
        check();
        return result_;
    }

private:
    void check() {
        if (const auto stored = agent_.stored(); stored != agent_.expected()) {
            find(fmt::format(
                "{} of {} messages are stored", stored.size(), agent_.expected().size()));
        }
        if (agent_.uploads() > static_cast<std::size_t>(result_.units) + 1) {
            find(fmt::format("{} uploads after {} kills", agent_.uploads(), result_.units));
        }
        if (agent_.home().account() != service::sampleAccounts().front().email) {
            find("the session is lost");
        }
        const auto defaults = makeUserDefaults(agent_.home().settings());
        if (tavrin::storedValue<std::string>(*defaults, "collection.scope") != "allThreads") {
            find("the chosen scope is lost");
        }
        for (const std::string& name : agent_.home().leftovers()) {
            find("left behind: " + name);
        }
    }

    void find(const std::string& what) {
        result_.findings.push_back(story_.empty() ? what : fmt::format("{} ({})", what, story_));
    }

    std::mt19937 random_;
    CallCounts counts_;
    AgentHome agent_;
    FaultAtCall calls_{agent_.home() / "calls", "orvel-agent"};
    std::string story_;
    CampaignResult result_{0, {}};
};

} // namespace

TEST(KilledAgentTest, EveryMessageIsStoredOnceAndNothingIsLost) {
    // Not later: the homes share the keyring.
    const CallCounts counts = countCalls();
    runCampaign(3, [&](unsigned seed) { return KilledAgents(seed, counts).run(); });
}

} // namespace orvel::test
