// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/ScanArguments.h"

#include "core/TokenVariable.h"
#include "core/messages/AppleEpoch.h"

#include <QString>
#include <QUrl>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <ios>
#include <iterator>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// A token must fit into one header line.
tavrin::Secret checkedToken(std::string text, std::string_view from) {
    const tavrin::Secret whole(std::move(text));
    std::string token = whole.text();
    // In place: a trimmed copy would leave another copy in memory.
    CLI::detail::trim(token);
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
        const std::string part = CLI::detail::trim_copy(text.substr(begin, end - begin));
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

/// Arguments that are checked or converted after parsing.
struct RawArguments {
    std::string token;
    std::string tokenFile;
    std::string mode;
    std::string scope;
    std::string since;
    std::string addressBook = "system";
    std::string retryDelays = defaultRetryDelays();
    std::string previewFile;
};

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

std::variant<ScanArguments, std::string> parseScanArguments(int argc, const char* const* argv) {
    CLI::App app(
        "Runs one scan: copies the Messages database, reads the copy, and sends what was not sent "
        "yet to the service, with the session of --sign-in or the bearer token given.",
        "orvel-scan");
    ScanArguments arguments;
    RawArguments raw;
    // The parser could read the variable, but would leave the value in the environment.
    const std::optional<tavrin::Secret> fromEnvironment = tavrin::TokenVariable::take();
    using Action = ScanArguments::Action;
    const auto action = [&](const char* name, Action value, const char* description) {
        const auto choose = [&arguments, value] {
            arguments.action = value;
        };
        return app.add_flag_callback(name, choose, description)->group("Account");
    };
    CLI::Option* signIn =
        action("--sign-in", Action::SignIn, "Instead of a scan, sign in through the browser");
    CLI::Option* signOut =
        action("--sign-out", Action::SignOut, "Instead of a scan, forget the session");
    CLI::Option* showAccount =
        action("--account", Action::ShowAccount, "Instead of a scan, print who is signed in");
    signIn->excludes(signOut)->excludes(showAccount);
    signOut->excludes(showAccount);
    app.footer(
        std::string("The user's own choices of mode and scope hold where none is given. ") +
        tavrin::TokenVariable::advice +
        "\n\n"
        "Exit status: 0 scan done, 1 scan ended with an error, 2 usage, 128+n after signal n.");

    const auto option = [&app](const char* name, auto& value, const char* type, std::string help) {
        return app.add_option(name, value, std::move(help))->type_name(type);
    };
    option("--api-url", arguments.apiURL, "URL", "The service, as https://HOST[:PORT]");
    option("--ca-file", arguments.certificateFile, "PEM", "Further trusted certificates")
        ->check(CLI::ExistingFile);
    CLI::Option* token = option("--token", raw.token, "TOKEN", "The bearer token");
    CLI::Option* tokenFile =
        option("--token-file", raw.tokenFile, "FILE", "A file that holds the bearer token")
            ->excludes(token);
    option(
        "--source",
        arguments.sourcePath,
        "PATH",
        "The Messages database (default ~/Library/Messages/chat.db)");
    option(
        "--state",
        arguments.stateFile,
        "FILE",
        "Where progress is kept (default: the agent's user defaults)");
    option("--mode", raw.mode, "MODE", "withBodies or metadataOnly")
        ->check(CLI::IsMember({"withBodies", "metadataOnly"}).description(""));
    option("--scope", raw.scope, "SCOPE", "knownContactsOnly or allThreads")
        ->check(CLI::IsMember({"knownContactsOnly", "allThreads"}).description(""));
    option("--since", raw.since, "ISO-8601", "Only messages sent at or after this time");
    option("--address-book", raw.addressBook, "WHICH", "system (default) or none")
        ->check(CLI::IsMember({"system", "none"}).description(""));
    option(
        "--backfill-pause",
        arguments.backfillPause,
        "SECONDS",
        fmt::format("Pause between two batches of history (default {})", arguments.backfillPause))
        ->check(CLI::Range(0.0, 86400.0).description(""));
    option(
        "--retry-delays",
        raw.retryDelays,
        "SECONDS,...",
        "Pauses before a batch is sent again (default " + raw.retryDelays + ")");
    CLI::Option* preview = option(
                               "--preview",
                               raw.previewFile,
                               "[FILE]",
                               "Print what would be sent as JSON Lines, to the file or standard "
                               "output; sends nothing, moves no progress")
                               ->expected(0, 1);
    option(
        "--known-handles",
        arguments.knownHandlesFile,
        "FILE",
        "With --preview: a JSON array of the match hints that the service knows")
        ->needs(preview)
        ->check(CLI::ExistingFile);
    app.add_flag(
        "--json", arguments.printsJSON, "Print the summary, or the account, as one JSON object");
    app.add_flag("--verbose", arguments.isVerbose, "Print the log to standard error");
    for (CLI::Option* instead : {signIn, signOut, showAccount}) {
        instead->excludes(token)->excludes(tokenFile)->excludes(preview);
    }
    app.set_version_flag("--version", std::string(ORVEL_VERSION));

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success&) {
        const bool wantsVersion = app.get_option("--version")->count() > 0;
        return wantsVersion ? app.version() + "\n" : app.help();
    } catch (const CLI::ExtrasError&) {
        // Do not repeat the argument: it may be a token.
        throw UsageError("There is an argument that orvel-scan does not know.");
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    if (arguments.apiURL) {
        arguments.apiURL = checkedURL(*arguments.apiURL);
    }
    arguments.mode = tavrin::collectionModeFromRawValue(raw.mode);
    arguments.scope = tavrin::threadScopeFromRawValue(raw.scope);
    if (!raw.since.empty()) {
        arguments.since = checkedSince(raw.since);
    }
    arguments.usesAddressBook = raw.addressBook == "system";
    arguments.retryDelays = checkedDelays(raw.retryDelays);
    arguments.isPreview = preview->count() > 0;
    if (!raw.previewFile.empty() && raw.previewFile != "-") {
        arguments.previewFile = raw.previewFile;
    }
    if (arguments.action == Action::Scan && !arguments.isPreview) {
        arguments.token = tokenFrom(raw, *token, fromEnvironment);
        if (arguments.apiURL && !arguments.token) {
            // Send the token of a stored session only to the service that issued it.
            throw UsageError("Give a bearer token together with --api-url: --token-file FILE, "
                             "the variable ORVEL_TOKEN, or --token.");
        }
    }
    if (arguments.isPreview && arguments.printsJSON && !arguments.previewFile) {
        throw UsageError("--preview and --json cannot both write to standard output: give "
                         "--preview a file.");
    }
    return arguments;
}

} // namespace orvel
