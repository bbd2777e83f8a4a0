// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/ScanArguments.h"

#include "core/messages/AppleEpoch.h"

#include <QString>
#include <QUrl>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <ios>
#include <iterator>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

std::string withoutSurroundingSpace(const std::string& text) {
    constexpr std::string_view space = " \t\r\n";
    const auto first = text.find_first_not_of(space);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

/// A token must fit into one header line.
tavrin::Secret checkedToken(std::string text, std::string_view from) {
    const tavrin::Secret whole(std::move(text));
    std::string token = withoutSurroundingSpace(whole.text());
    if (token.empty()) {
        throw UsageError("The token in " + std::string(from) + " is empty.");
    }
    for (const char character : token) {
        if (character <= ' ' || character > '~') {
            throw UsageError(
                "The token in " + std::string(from) + " holds a character that no token has.");
        }
    }
    return tavrin::Secret(std::move(token));
}

tavrin::Secret tokenFromFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw UsageError("Could not read the token file " + path + ".");
    }
    try {
        return checkedToken(std::string(std::istreambuf_iterator<char>(file), {}), path);
    } catch (const std::ios_base::failure&) {
        throw UsageError("Could not read the token file " + path + ".");
    }
}

std::string checkedURL(const std::string& text) {
    const QUrl url(QString::fromStdString(text), QUrl::StrictMode);
    const bool isPlain = url.userInfo().isEmpty() && !url.hasQuery() && !url.hasFragment() &&
                         (url.path().isEmpty() || url.path() == QStringLiteral("/"));
    if (!url.isValid() || url.scheme() != QStringLiteral("https") || url.host().isEmpty() ||
        !isPlain) {
        // Do not repeat the URL: it may contain a password.
        throw UsageError("--api-url takes https://HOST or https://HOST:PORT and nothing more.");
    }
    return text.back() == '/' ? text.substr(0, text.size() - 1) : text;
}

tavrin::Date checkedSince(const std::string& text) {
    const auto date = tavrin::dateFromISO8601(text);
    if (!date) {
        throw UsageError(
            "--since takes a date and time such as 2024-03-09T17:05:42Z, not " + text + ".");
    }
    // In seconds. Slightly less than the range of the Messages database.
    constexpr double farthest = 9.2e9;
    if (std::abs(date->time_since_epoch().count() - tavrin::AppleEpoch::offsetFromUnix) >
        farthest) {
        throw UsageError("--since takes a time between the years 1710 and 2292, not " + text + ".");
    }
    return *date;
}

std::string defaultRetryDelays() {
    return fmt::format("{}", fmt::join(uploadRetryDelays(), ","));
}

std::vector<double> checkedDelays(const std::string& text) {
    std::vector<double> delays;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string part = withoutSurroundingSpace(text.substr(begin, end - begin));
        double delay = 0;
        if (!CLI::detail::lexical_cast(part, delay) || !std::isfinite(delay) || delay < 0) {
            throw UsageError(
                "--retry-delays takes seconds such as " + defaultRetryDelays() + ", not " + text +
                ".");
        }
        delays.push_back(delay);
        begin = end + 1;
    }
    return delays;
}

/// The unchecked arguments.
struct RawArguments {
    std::string apiURL;
    std::string certificateFile;
    std::string token;
    std::string tokenFile;
    std::string source;
    std::string state;
    std::string mode;
    std::string scope;
    std::string since;
    std::string retryDelays = defaultRetryDelays();
    std::string previewFile;
    std::string knownHandles;
};

/// Removes the token from the environment, so that child processes do not inherit it and other
/// processes cannot read it there.
std::optional<tavrin::Secret> takeFromEnvironment() {
    char* variable = std::getenv("ORVEL_TOKEN");
    if (variable == nullptr) {
        return std::nullopt;
    }
    tavrin::Secret token{std::string(variable)};
    std::fill_n(variable, token.text().size(), '\0');
    unsetenv("ORVEL_TOKEN");
    return token;
}

std::optional<tavrin::Secret> tokenFrom(
    RawArguments& raw,
    const CLI::Option& option,
    const std::optional<tavrin::Secret>& fromEnvironment) {
    if (option.count() > 0) {
        return checkedToken(std::move(raw.token), "--token");
    }
    if (!raw.tokenFile.empty()) {
        return tokenFromFile(raw.tokenFile);
    }
    if (fromEnvironment) {
        return checkedToken(fromEnvironment->text(), "ORVEL_TOKEN");
    }
    return std::nullopt;
}

} // namespace

std::variant<ScanArguments, EarlyExit> parseScanArguments(int argc, const char* const* argv) {
    CLI::App app(
        "Runs one scan: copies the Messages database, reads the copy, and sends what was not sent "
        "yet to the service, with the session of --sign-in or the bearer token given.",
        "orvel-scan");
    const std::string account = "Account";
    // The parser could read the variable, but would leave the value in the environment.
    const std::optional<tavrin::Secret> fromEnvironment = takeFromEnvironment();
    CLI::Option* signIn = app.add_flag("--sign-in")
                              ->description("Instead of a scan, sign in through the browser")
                              ->group(account);
    CLI::Option* signOut = app.add_flag("--sign-out")
                               ->description("Instead of a scan, forget the session")
                               ->group(account);
    CLI::Option* showAccount = app.add_flag("--account")
                                   ->description("Instead of a scan, print who is signed in")
                                   ->group(account);
    signIn->excludes(signOut)->excludes(showAccount);
    signOut->excludes(showAccount);
    app.footer(
        "The user's own choices of mode and scope hold where none is given. Prefer --token-file or "
        "the\nvariable ORVEL_TOKEN to --token: a command line can be seen by other users of this "
        "machine.\n\n"
        "Exit status: 0 scan done, 1 scan ended with an error, 2 usage, 128+n after signal n.");

    ScanArguments arguments;
    RawArguments raw;
    app.add_option("--api-url", raw.apiURL, "The service, as https://HOST[:PORT]")
        ->type_name("URL");
    app.add_option("--ca-file", raw.certificateFile, "Further trusted certificates")
        ->type_name("PEM")
        ->check(CLI::ExistingFile);
    CLI::Option* token =
        app.add_option("--token", raw.token, "The bearer token")->type_name("TOKEN");
    CLI::Option* tokenFile =
        app.add_option("--token-file", raw.tokenFile, "A file that holds the bearer token")
            ->type_name("FILE")
            ->excludes(token);
    app.add_option(
           "--source", raw.source, "The Messages database (default ~/Library/Messages/chat.db)")
        ->type_name("PATH");
    app.add_option(
           "--state", raw.state, "Where progress is kept (default: the agent's user defaults)")
        ->type_name("FILE");
    app.add_option("--mode", raw.mode, "withBodies or metadataOnly")
        ->check(CLI::IsMember({"withBodies", "metadataOnly"}).description(""))
        ->type_name("MODE");
    app.add_option("--scope", raw.scope, "knownContactsOnly or allThreads")
        ->check(CLI::IsMember({"knownContactsOnly", "allThreads"}).description(""))
        ->type_name("SCOPE");
    app.add_option("--since", raw.since, "Only messages sent at or after this time")
        ->type_name("ISO-8601");
    std::string addressBook = "system";
    app.add_option("--address-book", addressBook, "system (default) or none")
        ->check(CLI::IsMember({"system", "none"}).description(""))
        ->type_name("WHICH");
    app.add_option(
           "--backfill-pause",
           arguments.backfillPause,
           fmt::format(
               "Pause between two batches of history (default {})", arguments.backfillPause))
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 86400.0).description(""));
    app.add_option(
           "--retry-delays",
           raw.retryDelays,
           "Pauses before a batch is sent again (default " + raw.retryDelays + ")")
        ->type_name("SECONDS,...");
    CLI::Option* preview = app.add_option(
                                  "--preview",
                                  raw.previewFile,
                                  "Print what would be sent as JSON Lines, to the file or standard "
                                  "output; sends nothing, moves no progress")
                               ->type_name("[FILE]")
                               ->expected(0, 1);
    app.add_option(
           "--known-handles",
           raw.knownHandles,
           "With --preview: a JSON array of the match hints that the service knows")
        ->type_name("FILE")
        ->needs(preview)
        ->check(CLI::ExistingFile);
    app.add_flag(
        "--json", arguments.printsJSON, "Print the summary, or the account, as one JSON object");
    app.add_flag("--verbose", arguments.isVerbose, "Print the log to standard error");
    for (CLI::Option* action : {signIn, signOut, showAccount}) {
        action->excludes(token)->excludes(tokenFile)->excludes(preview);
    }
    app.set_version_flag("--version", std::string(ORVEL_VERSION));

    try {
        app.parse(argc, argv);
        if (!raw.apiURL.empty()) {
            arguments.apiURL = checkedURL(raw.apiURL);
        }
        if (!raw.certificateFile.empty()) {
            arguments.certificateFile = raw.certificateFile;
        }
        if (!raw.source.empty()) {
            arguments.sourcePath = raw.source;
        }
        if (!raw.state.empty()) {
            arguments.stateFile = raw.state;
        }
        arguments.mode = tavrin::collectionModeFromRawValue(raw.mode);
        arguments.scope = tavrin::threadScopeFromRawValue(raw.scope);
        if (!raw.since.empty()) {
            arguments.since = checkedSince(raw.since);
        }
        if (!raw.knownHandles.empty()) {
            arguments.knownHandlesFile = raw.knownHandles;
        }
        arguments.usesAddressBook = addressBook == "system";
        arguments.retryDelays = checkedDelays(raw.retryDelays);
        arguments.isPreview = preview->count() > 0;
        if (!raw.previewFile.empty() && raw.previewFile != "-") {
            arguments.previewFile = raw.previewFile;
        }
        if (signIn->count() > 0) {
            arguments.action = ScanArguments::Action::SignIn;
        } else if (signOut->count() > 0) {
            arguments.action = ScanArguments::Action::SignOut;
        } else if (showAccount->count() > 0) {
            arguments.action = ScanArguments::Action::ShowAccount;
        } else if (!arguments.isPreview) {
            arguments.token = tokenFrom(raw, *token, fromEnvironment);
            if (arguments.apiURL && !arguments.token) {
                // Send the token of a stored session only to the service that issued it.
                throw UsageError("--api-url needs a bearer token of its own: --token-file FILE, "
                                 "the variable ORVEL_TOKEN, or --token.");
            }
        }
        if (arguments.isPreview && arguments.printsJSON && !arguments.previewFile) {
            throw UsageError("--preview and --json cannot both write to standard output: give "
                             "--preview a file.");
        }
        return arguments;
    } catch (const CLI::Success&) {
        const bool wantsVersion = app.get_option("--version")->count() > 0;
        return EarlyExit{0, wantsVersion ? app.version() + "\n" : app.help()};
    } catch (const CLI::ExtrasError&) {
        // Do not repeat the argument: it may be a token.
        return EarlyExit{
            usageStatus,
            "There is an argument that orvel-scan does not know.\n"
            "Run orvel-scan --help for the usage.\n"};
    } catch (const CLI::ParseError& error) {
        return EarlyExit{
            usageStatus, std::string(error.what()) + "\nRun orvel-scan --help for the usage.\n"};
    } catch (const UsageError& error) {
        return EarlyExit{
            usageStatus, std::string(error.what()) + "\nRun orvel-scan --help for the usage.\n"};
    }
}

} // namespace orvel
