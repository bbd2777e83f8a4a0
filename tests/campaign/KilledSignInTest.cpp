// SPDX-License-Identifier: Apache-2.0
//
// Sign-ins and sign-outs that are killed at random calls. Needs a private session with a keyring
// (tests/support/private-session).
#include "tests/campaign/SignInHome.h"
#include "tests/support/Campaign.h"
#include "tests/support/linux/FaultAtCall.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

constexpr int killsPerSeed = 5;

class KilledSignIns final {
public:
    explicit KilledSignIns(unsigned seed) : random_(seed) {}

    CampaignResult run() {
        const std::vector<service::Account> accounts = service::sampleAccounts();
        makeMessages();
        requireSuccess(home_.signIn(accounts[0], calls_.counting()));
        const CallCounts signInCounts = calls_.counts();
        requireSuccess(home_.signOut(calls_.counting()));
        const CallCounts signOutCounts = calls_.counts();
        if (random_() % 2 == 0) {
            requireSuccess(home_.signIn(accounts[0]));
        }
        SignInHome::SignedIn before = home_.account();
        for (int kill = 0; kill < killsPerSeed && result_.findings.empty(); ++kill) {
            const bool isSignOut = before && random_() % 2 == 0;
            const service::Account& account = accounts.at(random_() % accounts.size());
            const CallFault point =
                FaultAtCall::chooseKill(isSignOut ? signOutCounts : signInCounts, random_);
            story_ = fmt::format("{}, {}", isSignOut ? "sign-out" : "sign-in", describe(point));
            const SignInHome::Run run = isSignOut ? home_.signOut(calls_.with(point))
                                                  : home_.signIn(account, calls_.with(point));
            if (run.status == 128 + SIGKILL) {
                ++result_.units;
            } else if (run.status != 0) {
                find(fmt::format("it ended with status {}: {}", run.status, run.errors));
            }
            const SignInHome::SignedIn intended = isSignOut ? std::nullopt : account.email;
            SignInHome::SignedIn after = home_.account();
            const bool isConfirmed = !run.output.empty();
            if (!isSignOut && !isConfirmed && after == SignInHome::withoutProfile) {
                // The profile is loaded after the session was stored. A scan makes up for it.
                checkSession();
                after = home_.account();
                if (after != intended) {
                    find("the session is that of " + after.value_or("no account"));
                }
            } else if (after != intended && (isConfirmed || after != before)) {
                find(fmt::format(
                    "before: {}, then: {}, intended: {}, {}",
                    before.value_or("signed out"),
                    after.value_or("signed out"),
                    intended.value_or("signed out"),
                    isConfirmed ? "confirmed" : "not confirmed"));
            }
            before = after;
        }
        checkEnd(accounts.front());
        return result_;
    }

private:
    void makeMessages() {
        Program program(
            home_.options({MAKE_SAMPLE_CHATDB, (home_ / "chat.db").string(), "--messages", "20"}));
        requireSuccess(SignInHome::finish(program));
    }

    static void requireSuccess(const SignInHome::Run& run) {
        if (run.status != 0) {
            throw std::runtime_error("without a kill: " + run.errors);
        }
    }

    /// The service must accept the stored session.
    void checkSession() {
        const SignInHome::Run scan = home_.run(
            {"--source",
             (home_ / "chat.db").string(),
             "--state",
             (home_ / "state.conf").string(),
             "--scope",
             "allThreads",
             "--address-book",
             "none"});
        if (scan.status != 0) {
            find("the session without a profile cannot be used: " + scan.errors);
        }
    }

    /// A process that nothing disturbs can sign in, use the session, and sign out.
    void checkEnd(const service::Account& account) {
        const SignInHome::Run signIn = home_.signIn(account);
        if (signIn.status != 0 || home_.account() != account.email) {
            find("the last sign-in failed: " + signIn.errors);
        }
        checkSession();
        const SignInHome::Run signOut = home_.signOut();
        if (signOut.status != 0 || home_.account()) {
            find("the last sign-out failed: " + signOut.errors);
        }
        for (const std::string& name : home_.leftovers()) {
            find("left behind: " + name);
        }
    }

    void find(const std::string& what) {
        result_.findings.push_back(fmt::format("{} ({})", what, story_));
    }

    std::mt19937 random_;
    SignInHome home_;
    FaultAtCall calls_{home_ / "calls", "orvel-scan"};
    std::string story_;
    CampaignResult result_{0, {}};
};

} // namespace

TEST(KilledSignInTest, TheSessionIsWholeOrAbsent) {
    runCampaign(5, [](unsigned seed) { return KilledSignIns(seed).run(); });
}

} // namespace orvel::test
