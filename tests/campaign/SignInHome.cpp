// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/SignInHome.h"

#include "OrvelAgent/network/QueryItems.h"
#include "tests/platform/linux/signin/SignInBusCalls.h"
#include "tests/support/WaitUntil.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace orvel::test {

namespace {

void writeScript(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file) << "#!/bin/sh\n" << text << '\n';
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
}

/// No value if the sign-in was killed before it redirected the browser to the page.
std::optional<std::string> challengeOf(const std::string& page) {
    if (page.empty()) {
        return std::nullopt;
    }
    const std::vector<QueryItem> items = queryItems(page).value();
    const auto found = std::ranges::find(items, "challenge", &QueryItem::name);
    if (found == items.end() || !found->value) {
        throw std::runtime_error("the page has no challenge");
    }
    return found->value;
}

} // namespace

SignInHome::SignInHome() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing writes the environment meanwhile
    if (std::getenv("PRIVATE_SESSION") == nullptr) {
        throw std::runtime_error("Run this with tests/support/private-session --keyring.");
    }
    service::LocalService::Options options;
    options.store = store();
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
        fmt::format(
            "curl --disable --silent --noproxy '*' --output /dev/null "
            "--write-out '%{{redirect_url}}' \"$1\" >{0}.new; mv {0}.new {0}",
            page().string()));
    writeScript(
        directory_ / "tools" / "xdg-mime",
        fmt::format(
            "if [ \"$1\" = query ]; then cat {0} 2>/dev/null || true; else echo \"$2\" >{0}; fi",
            (directory_ / "handler").string()));
    writeScript(directory_ / "tools" / "update-desktop-database", "exit 0");
}

SignInHome::Run SignInHome::signIn(const service::Account& account, const Variables& variables) {
    std::filesystem::remove(page());
    Program program(options({ORVEL_SCAN, "--sign-in"}, variables));
    std::optional<int> status;
    const bool hasOpened = waitUntil([&] {
        status = program.waitFor(std::chrono::milliseconds(0));
        return status || std::filesystem::exists(page());
    });
    if (!hasOpened) {
        throw std::runtime_error("the sign-in does not open the browser: " + program.errors());
    }
    if (!status) {
        std::ifstream file(page());
        const std::string url(std::istreambuf_iterator<char>(file), {});
        // It is not accepted if the sign-in was killed meanwhile.
        if (const auto challenge = challengeOf(url)) {
            callBack("orvelagent://callback?code=" + service_->mintCode(*challenge, account.uid));
        }
    }
    return finish(program);
}

SignInHome::Run
SignInHome::run(const std::vector<std::string>& arguments, const Variables& variables) {
    std::vector<std::string> all{ORVEL_SCAN};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Program program(options(all, variables));
    return finish(program);
}

SignInHome::SignedIn SignInHome::account() {
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
    return email != nullptr ? std::string(email->as_string()) : withoutProfile;
}

Program::Options
SignInHome::options(const std::vector<std::string>& arguments, const Variables& variables) const {
    Program::Options options;
    options.arguments = arguments;
    options.environment = {
        {"HOME", home().string()},
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

SignInHome::Run SignInHome::finish(Program& program) {
    // The event loop runs, because the answer to a callback may still be on its way.
    std::optional<int> status;
    const bool hasEnded = waitUntil([&] {
        status = program.waitFor(std::chrono::milliseconds(0));
        return status.has_value();
    });
    if (!hasEnded) {
        throw std::runtime_error("the program does not end: " + program.errors());
    }
    return {*status, program.output(), program.errors()};
}

std::vector<std::string> SignInHome::leftovers() const {
    std::vector<std::string> names;
    for (const char* folder : {"data", "config", "temporary"}) {
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(directory_ / folder)) {
            const std::string name = entry.path().filename();
            if (entry.is_regular_file() && !name.ends_with(".desktop") && name != "defaults.conf" &&
                !name.ends_with(".inuse")) {
                names.push_back(name);
            }
        }
    }
    return names;
}

} // namespace orvel::test
