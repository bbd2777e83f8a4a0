// SPDX-License-Identifier: Apache-2.0
//
// Sign-ins and sign-outs that are killed at random calls. Needs a private session with a keyring
// (tests/support/private-session).
#include "OrvelAgent/network/QueryItems.h"
#include "service/LocalService.h"
#include "tests/platform/linux/signin/SignInBusCalls.h"
#include "tests/support/Campaign.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/linux/KillAtCall.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

constexpr int killsPerSeed = 5;

/// The e-mail address of the account; none if signed out.
using SignedIn = std::optional<std::string>;

void writeScript(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file) << "#!/bin/sh\n" << text << '\n';
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
}

/// A service, the folders of a user, and a desktop whose browser stores the opened page in a file.
class SignInHome final {
public:
    struct Run {
        int status = -1;
        std::string output;
        std::string errors;
    };
    using Variables = std::map<std::string, std::string>;

    SignInHome() {
        service::LocalService::Options options;
        options.store = directory_ / "records.sqlite";
        options.certificates = directory_ / "certificates";
        options.tokens = {"an operator's token"};
        service_ = std::make_unique<service::LocalService>(std::move(options));
        service_->start();
        service_->writeBundle(directory_ / "bundle");
        for (const char* folder : {"tools", "home", "config", "data", "temporary"}) {
            std::filesystem::create_directory(directory_ / folder);
        }
        writeScript(
            directory_ / "tools" / "xdg-open",
            fmt::format("printf %s \"$1\" >{0}.new && mv {0}.new {0}", page().string()));
        const std::string handler = directory_ / "handler";
        writeScript(
            directory_ / "tools" / "xdg-mime",
            fmt::format(
                "if [ \"$1\" = query ]; then cat {0} 2>/dev/null || true; else echo \"$2\" >{0}; "
                "fi",
                handler));
        writeScript(directory_ / "tools" / "update-desktop-database", "exit 0");
    }

    /// Signs in, and chooses the account in the browser.
    Run signIn(const service::Account& account, const Variables& variables = {}) {
        std::filesystem::remove(page());
        Program program(options({"--sign-in"}, variables));
        std::optional<int> status;
        const bool hasOpened = waitUntil([&] {
            status = program.waitFor(std::chrono::milliseconds(0));
            return status || std::filesystem::exists(page());
        });
        if (!hasOpened) {
            throw std::runtime_error("the sign-in does not open the browser");
        }
        if (!status) {
            std::ifstream file(page());
            const std::string url(std::istreambuf_iterator<char>(file), {});
            // The sign-in may have been killed meanwhile.
            callBack(
                "orvelagent://callback?code=" + service_->mintCode(challengeOf(url), account.uid));
        }
        return finish(program);
    }

    Run signOut(const Variables& variables = {}) { return run({"--sign-out"}, variables); }

    Run run(const std::vector<std::string>& arguments, const Variables& variables = {}) {
        Program program(options(arguments, variables));
        return finish(program);
    }

    /// What a new process finds in the keychain.
    SignedIn account() {
        const Run run = this->run({"--account", "--json"});
        const boost::json::value account = boost::json::parse(run.output);
        const bool isSignedIn = account.at("signedIn").as_bool();
        if (run.status != (isSignedIn ? 0 : 1)) {
            throw std::runtime_error(fmt::format("--account ended with status {}", run.status));
        }
        if (!isSignedIn) {
            return std::nullopt;
        }
        const auto* email = account.as_object().if_contains("email");
        return email != nullptr ? std::string(email->as_string()) : "an unknown account";
    }

    /// Files beside the desktop entry of the sign-in.
    [[nodiscard]] std::vector<std::string> leftovers() const {
        std::vector<std::string> names;
        for (const char* folder : {"data", "config", "temporary"}) {
            for (const auto& entry :
                 std::filesystem::recursive_directory_iterator(directory_ / folder)) {
                const std::string name = entry.path().filename();
                if (entry.is_regular_file() && !name.ends_with(".desktop") &&
                    name != "defaults.conf" && !name.ends_with(".inuse")) {
                    names.push_back(name);
                }
            }
        }
        return names;
    }

    [[nodiscard]] std::filesystem::path counts() const { return directory_ / "calls"; }

private:
    [[nodiscard]] std::filesystem::path page() const { return directory_ / "page"; }

    [[nodiscard]] Program::Options
    options(const std::vector<std::string>& arguments, const Variables& variables) const {
        Program::Options options;
        options.arguments = {ORVEL_SCAN};
        options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
        options.environment = {
            {"HOME", (directory_ / "home").string()},
            {"XDG_CONFIG_HOME", (directory_ / "config").string()},
            {"XDG_DATA_HOME", (directory_ / "data").string()},
            {"TMPDIR", (directory_ / "temporary").string()},
            {"PATH", (directory_ / "tools").string() + ":/usr/bin:/bin"},
            {"ORVEL_AGENT_BUNDLE", (directory_ / "bundle").string()},
            {"ORVEL_TOKEN", ""},
            {"https_proxy", ""},
            {"HTTPS_PROXY", ""},
            {"all_proxy", ""},
            {"ALL_PROXY", ""}};
        options.environment.insert(variables.begin(), variables.end());
        return options;
    }

    static Run finish(Program& program) {
        // The event loop runs, because the answer to a callback may still be on its way.
        std::optional<int> status;
        if (!waitUntil([&] {
                status = program.waitFor(std::chrono::milliseconds(0));
                return status.has_value();
            })) {
            throw std::runtime_error("orvel-scan does not end: " + program.errors());
        }
        return {*status, program.output(), program.errors()};
    }

    static std::string challengeOf(const std::string& url) {
        const std::vector<QueryItem> items = queryItems(url).value();
        const auto found = std::ranges::find(items, "challenge", &QueryItem::name);
        if (found == items.end() || !found->value) {
            throw std::runtime_error("the page has no challenge");
        }
        return *found->value;
    }

    TemporaryDirectory directory_;
    std::unique_ptr<service::LocalService> service_;
};

class KilledSignIns final {
public:
    explicit KilledSignIns(unsigned seed) : random_(seed) {}

    CampaignResult run() {
        const std::vector<service::Account> accounts = service::sampleAccounts();
        requireSuccess(home_.signIn(accounts[0], calls_.counting()));
        const CallCounts signInCounts = calls_.counts();
        requireSuccess(home_.signOut(calls_.counting()));
        const CallCounts signOutCounts = calls_.counts();
        if (random_() % 2 == 0) {
            requireSuccess(home_.signIn(accounts[0]));
        }
        SignedIn before = home_.account();
        for (int kill = 0; kill < killsPerSeed && result_.findings.empty(); ++kill) {
            const bool isSignOut = before && random_() % 2 == 0;
            const service::Account& account = accounts.at(random_() % accounts.size());
            const KillPoint point =
                KillAtCall::choose(isSignOut ? signOutCounts : signInCounts, random_);
            story_ = fmt::format("{}, {}", isSignOut ? "sign-out" : "sign-in", describe(point));
            const SignInHome::Run run = isSignOut ? home_.signOut(calls_.killing(point))
                                                  : home_.signIn(account, calls_.killing(point));
            if (run.status == 128 + SIGKILL) {
                ++result_.units;
            } else if (run.status != 0) {
                find(fmt::format("it ended with status {}: {}", run.status, run.errors));
            }
            const SignedIn intended = isSignOut ? std::nullopt : account.email;
            const SignedIn after = home_.account();
            const bool isConfirmed = !run.output.empty();
            if (after != intended && (isConfirmed || after != before)) {
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
    static void requireSuccess(const SignInHome::Run& run) {
        if (run.status != 0) {
            throw std::runtime_error("without a kill: " + run.errors);
        }
    }

    /// A process that nothing disturbs can sign in, use the session, and sign out.
    void checkEnd(const service::Account& account) {
        const SignInHome::Run signIn = home_.signIn(account);
        if (signIn.status != 0 || home_.account() != account.email) {
            find("the last sign-in failed: " + signIn.errors);
        }
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
    KillAtCall calls_{home_.counts(), "orvel-scan"};
    std::string story_;
    CampaignResult result_{0, {}};
};

} // namespace

TEST(KilledSignInTest, TheSessionIsWholeOrAbsent) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing writes the environment meanwhile
    ASSERT_NE(std::getenv("PRIVATE_SESSION"), nullptr) << "Run this with private-session.";
    runCampaign(5, [](unsigned seed) { return KilledSignIns(seed).run(); });
}

} // namespace orvel::test
