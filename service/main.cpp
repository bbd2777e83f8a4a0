// SPDX-License-Identifier: Apache-2.0
#include "core/TokenVariable.h"
#include "platform/CoreDumps.h"
#include "service/LocalService.h"
#include "service/accounts/TokenFile.h"
#include "service/records/KnownHandles.h"
#include "service/support/ServiceError.h"

#include <CLI/CLI.hpp>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using orvel::service::LocalService;
using orvel::service::ServiceError;

constexpr const char* controlHelp = R"(Control (--control), with any accepted bearer token:
  POST /control/faults    spoils the next replies. Keys of the JSON body:
      "fault"             "status", "delay", "reset", "cut-off",
                          "accept-then-reset" or "accept-then-cut-off" (the last
                          two carry the request out, but its reply is lost)
      "times"             how many replies (1)
      "path"              only requests to this path (any)
      "delayMilliseconds" wait before the request is handled (0)
      "status", "body"    of a "status" fault (503, empty)
      "code", "error"     of a "status" fault: an error envelope instead of "body"
  DELETE /control/faults  removes the pending faults
  POST /control/sessions/revoke   ends sessions; their next refresh is refused.
                          Keys of the JSON body:
      "uid"               sessions of this account only (all)
      "message"           error code of the refused refresh ("TOKEN_EXPIRED")
      "endIDTokens"       true: ID tokens are answered with an expired session
  POST /control/id-tokens/expire  makes every ID token expire now
  POST /control/users/disable     the account "uid" can neither sign in nor
                          refresh; "disabled": false enables it again
  GET /control/stats      counts of what was received)";

struct Arguments {
    LocalService::Options service;
    std::optional<std::filesystem::path> tokenFile;
    std::optional<std::filesystem::path> knownHandles;
    std::optional<std::filesystem::path> accounts;
    std::optional<std::filesystem::path> bundle;
    std::int64_t idTokenLifetime = std::chrono::seconds(std::chrono::hours(1)).count();
    bool isQuiet = false;
    bool exitsWithParent = false;
};

std::filesystem::path dataDirectory() {
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') {
        return std::filesystem::path(data) / "orvel-local-service";
    }
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home == nullptr ? "." : home) / ".local/share/orvel-local-service";
}

void declare(CLI::App& app, Arguments& arguments) {
    const auto file = [&app](const char* name, auto& target, const char* help) {
        app.add_option(name, target, help)->type_name("FILE")->capture_default_str();
    };
    auto& service = arguments.service;
    app.add_option("--port", service.port, "Port on 127.0.0.1; 0 is any free one")
        ->type_name("NUMBER")
        ->capture_default_str();
    file("--store", service.store, "SQLite file for what is received");
    app.add_option(
           "--cert-dir",
           service.certificates,
           "Directory of the certificate authority and its keys")
        ->type_name("DIRECTORY")
        ->capture_default_str();
    app.add_option(
           "--token",
           service.tokens,
           "Bearer token to accept besides those of sessions; may be given more than once; "
           "without any, the random one in the file \"token\" beside the store is accepted")
        ->type_name("TOKEN")
        ->allow_extra_args(false);
    file("--token-file", arguments.tokenFile, "One token to accept per line");
    file(
        "--known-handles",
        arguments.knownHandles,
        "JSON array of the phone numbers and e-mail addresses the service knows");
    file(
        "--accounts",
        arguments.accounts,
        "JSON array of the accounts that can sign in: objects with \"uid\", "
        "\"email\" and \"handle\"; [] for none; two sample accounts by default");
    app.add_option(
           "--api-key",
           service.apiKey,
           "The only API key to accept for identity tokens; any key by default")
        ->type_name("KEY");
    app.add_option(
           "--id-token-lifetime", arguments.idTokenLifetime, "How long an ID token is valid")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    app.add_option(
           "--bundle-out",
           arguments.bundle,
           "Write an Info.plist here; a program of a build folder that is not in an application "
           "bundle, started with ORVEL_AGENT_BUNDLE=DIRECTORY, talks to this service; an "
           "installed agent and a macOS application use their own Info.plist")
        ->type_name("DIRECTORY");
    auto* updates =
        app.add_option(
               "--updates",
               service.updates,
               "Serve this folder's files below /updates/; its appcast.xml is the update feed")
            ->type_name("DIRECTORY")
            ->check(CLI::ExistingDirectory.description(""));
    app.add_option(
           "--update-public-key",
           service.updatePublicKey,
           "Public key of the updates; the agent of --bundle-out looks here for updates")
        ->type_name("KEY")
        ->needs(updates);
    file(
        "--capture",
        service.capture,
        "Append the requests to this file, without tokens and sign-in secrets");
    app.add_flag("--control", service.hasControl, "Let test programs script faults (see below)");
    app.add_flag("--quiet", arguments.isQuiet, "Do not report every request on standard error");
    app.add_flag(
        "--exit-with-parent", arguments.exitsWithParent, "End when the starting process ends");
    app.footer(
        std::string("Besides sessions, only the given tokens are accepted. ") +
        tavrin::TokenVariable::advice +
        "\n\nThe pages open in a browser that has opened the link printed at the start. A link "
        "works "
        "once. The\nsignal USR1 (kill -USR1 PROCESS) prints another one.\n\n" +
        controlHelp);
}

void appendTokens(const std::filesystem::path& file, std::vector<std::string>& tokens) {
    std::ifstream stream(file);
    const auto before = tokens.size();
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) {
            tokens.push_back(std::move(line));
        }
    }
    if (tokens.size() == before) {
        throw ServiceError(ServiceError::File{file.string(), "it holds no token"});
    }
}

/// The tokens of the options, the environment or the default file. Returns that file if it is used.
std::optional<std::filesystem::path> collectTokens(Arguments& arguments) {
    auto& tokens = arguments.service.tokens;
    if (arguments.tokenFile) {
        appendTokens(*arguments.tokenFile, tokens);
    }
    const auto variable = tavrin::TokenVariable::take();
    if (variable && !variable->isEmpty()) {
        tokens.push_back(variable->text());
    }
    if (!tokens.empty()) {
        return std::nullopt;
    }
    auto file = std::filesystem::absolute(arguments.service.store).replace_filename("token");
    tokens.push_back(orvel::service::loadOrCreateToken(file));
    return file;
}

/// Must run before any thread starts: threads inherit the mask, and `sigwait()` gets the signals.
sigset_t blockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// Sends this process SIGTERM when its parent has exited. There is no portable notification, so a
/// thread polls twice a second.
void exitWithParent() {
    std::thread([parent = getppid()] {
        while (getppid() == parent) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
        kill(getpid(), SIGTERM);
    }).detach();
}

void printPageLink(LocalService& service) {
    std::cout << "Open the pages with this link, which works once: " << service.mintPageLink()
              << std::endl;
}

void run(Arguments arguments) {
    // All files are for this user only.
    umask(S_IRWXG | S_IRWXO);
    const auto signals = blockSignals();
    // Writing to a reader that has gone then fails. It must not end the service.
    std::signal(SIGPIPE, SIG_IGN);
    const auto tokenFile = collectTokens(arguments);
    if (arguments.exitsWithParent) {
        exitWithParent();
    }
    auto& options = arguments.service;
    if (arguments.knownHandles) {
        options.knownHandles = orvel::service::readKnownHandles(*arguments.knownHandles);
    }
    if (arguments.accounts) {
        options.accounts = orvel::service::readAccounts(*arguments.accounts);
    }
    options.idTokenLifetime = std::chrono::seconds(arguments.idTokenLifetime);
    if (!arguments.isQuiet) {
        options.log = [](std::string_view line) {
            std::cerr << line << std::endl;
        };
    }
    LocalService service(std::move(options));
    service.start();
    if (arguments.bundle) {
        service.writeBundle(*arguments.bundle);
    }
    std::cout << "orvel-local-service ready at " << service.url()
              << " (certificate authority: " << service.caFile().string() << ")" << std::endl;
    printPageLink(service);
    if (tokenFile) {
        std::cout << "Send records with orvel-scan --token-file " << tokenFile->string()
                  << std::endl;
    }
    int signal = 0;
    while (sigwait(&signals, &signal) == 0 && signal == SIGUSR1) {
        printPageLink(service);
    }
    service.stop();
}

} // namespace

int main(int argc, char** argv) {
    orvel::forbidCoreDumps();
    try {
        Arguments arguments;
        arguments.service.port = 8443;
        arguments.service.store = dataDirectory() / "records.sqlite";
        arguments.service.certificates = dataDirectory() / "certificates";
        CLI::App app(
            "A local service for Orvel Agent: receives what the agent sends, on this computer");
        app.name("orvel-local-service");
        declare(app, arguments);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? EXIT_SUCCESS : 2;
        }
        run(std::move(arguments));
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "orvel-local-service: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
