// SPDX-License-Identifier: Apache-2.0
#include "core/Date.h"
#include "tools/sample/SampleMessages.h"
#include "tools/sample/SampleMessagesDatabase.h"

#include <CLI/CLI.hpp>
#include <boost/json.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace orvel;

constexpr int failed = 1;
constexpr int wrongUsage = 2;

struct Arguments {
    std::string path;
    SampleMessagesDatabase::Options options;
    std::optional<int> chatCount;
    std::string newest;
    std::int64_t spanDays = 365;
    std::vector<std::string> withoutColumns;
    std::int64_t appendedCount = 0;
    std::string knownHandlesPath;
    std::string addressBookPath;
};

std::optional<tavrin::Date> dateFrom(const std::string& text) {
    if (text == "now") {
        return tavrin::Date(std::chrono::system_clock::now());
    }
    return tavrin::dateFromISO8601(text);
}

std::string dateComplaint(const std::string& text) {
    const auto date = dateFrom(text);
    if (!date) {
        return text + " is not an ISO 8601 time with a zone";
    }
    // 64 bits of nanoseconds since 2001 overflow in the year 2293.
    const auto year =
        std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(*date)).year();
    return year > std::chrono::year(2001) && year < std::chrono::year(2290)
               ? std::string()
               : text + " is not in the years 2002 to 2289";
}

void declareOptions(CLI::App& app, Arguments& arguments) {
    auto& options = arguments.options;
    auto& content = options.content;
    const CLI::Range share(0.0, 1.0);
    constexpr std::int64_t mostMessages = 100'000'000;

    app.add_option("OUTPUT", arguments.path, "The database file; missing folders are created")
        ->required();
    auto* messages = app.add_option("--messages", options.messageCount, "Number of messages")
                         ->check(CLI::Range(std::int64_t{0}, mostMessages))
                         ->capture_default_str();
    auto* chats = app.add_option(
                         "--chats",
                         arguments.chatCount,
                         "Number of chats; by default one per 500 messages, from 12 to 2000")
                      ->check(CLI::Range(1, SampleConversations::maximumChatCount));
    app.add_option("--seed", content.seed, "The same seed and options give the same content")
        ->capture_default_str();
    app.add_option(
           "--end",
           arguments.newest,
           "Time of the newest message, such as 2025-03-01T12:00:00Z (the default), or \"now\"")
        ->check(CLI::Validator(dateComplaint, "TIME"));
    auto* span =
        app.add_option(
               "--span", arguments.spanDays, "Days between the oldest and the newest message")
            ->check(CLI::Range(1, 20'000))
            ->capture_default_str();

    app.add_option("--orphan-share", content.orphanShare, "Share of messages in no chat")
        ->check(share)
        ->capture_default_str();
    auto* twoChats =
        app.add_option("--two-chat-share", content.twoChatShare, "Share of messages in two chats")
            ->check(share)
            ->capture_default_str();
    app.add_flag_callback(
           "--no-two-chat", [&content] { content.twoChatShare = 0; }, "No message is in two chats")
        ->excludes(twoChats);
    app.add_option(
           "--seconds-dates",
           content.secondsDatesShare,
           "Share of dates stored in seconds rather than nanoseconds")
        ->check(share)
        ->capture_default_str();
    app.add_option(
           "--nasty",
           content.nastyShare,
           "Share of malformed rows, such as ill-formed text, a truncated archive or no date; "
           "unless it is 0, the first rows contain one of each")
        ->check(share)
        ->capture_default_str();
    auto* without =
        app.add_option(
               "--without-column", arguments.withoutColumns, "Leave a column out; may be repeated")
            ->check(CLI::IsMember(SampleMessagesDatabase::optionalColumns))
            ->allow_extra_args(false);

    app.add_flag(
        "--keep-wal,!--no-wal",
        options.keepsLog,
        "Leave the newest rows in a write-ahead log beside the file (the default), as Messages "
        "does while it runs, or leave no log");
    auto* force = app.add_flag("--force", options.overwrites, "Replace an existing file");

    auto* knownHandles = app.add_option(
        "--known-handles-out",
        arguments.knownHandlesPath,
        "Also write the match hints of about half of the people, as a JSON array");
    auto* addressBook = app.add_option(
        "--address-book-out", arguments.addressBookPath, "Also write some of the people as vCards");
    auto* append = app.add_option(
                          "--append",
                          arguments.appendedCount,
                          "Add this number of newer messages to a sample made with the same "
                          "seed, one minute apart or spread up to --end")
                       ->check(CLI::Range(std::int64_t{1}, mostMessages));
    for (auto* option : {messages, chats, span, without, force, knownHandles, addressBook}) {
        append->excludes(option);
    }
}

/// Prints progress after one second, if standard error is a terminal.
WriteProgress progressOnTerminal(std::int64_t total) {
    if (isatty(STDERR_FILENO) == 0) {
        return {};
    }
    const auto start = std::chrono::steady_clock::now();
    return [start, total](std::int64_t written) {
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(1)) {
            fmt::print(stderr, "\r{} of {} messages", written, total);
            if (written == total) {
                fmt::print(stderr, "\n");
            }
        }
    };
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file) {
        throw SampleMessagesDatabase::Error(SampleMessagesDatabase::Error::File{
            path, std::error_code(errno, std::generic_category()).message()});
    }
}

SampleMessagesDatabase::Summary create(Arguments arguments) {
    auto& options = arguments.options;
    options.content.chatCount = arguments.chatCount
                                    ? *arguments.chatCount
                                    : SampleMessages::chatCountFor(options.messageCount);
    options.newest = dateFrom(arguments.newest).value_or(options.newest);
    options.span = std::chrono::days(arguments.spanDays);
    options.withoutColumns = {arguments.withoutColumns.begin(), arguments.withoutColumns.end()};
    const auto summary = SampleMessagesDatabase::create(
        arguments.path, options, progressOnTerminal(options.messageCount));

    const SampleConversations conversations(options.content.seed, options.content.chatCount);
    if (!arguments.knownHandlesPath.empty()) {
        const boost::json::value hints = boost::json::value_from(conversations.knownHandleHints());
        writeFile(arguments.knownHandlesPath, boost::json::serialize(hints) + '\n');
    }
    if (!arguments.addressBookPath.empty()) {
        writeFile(arguments.addressBookPath, conversations.addressBook());
    }
    return summary;
}

SampleMessagesDatabase::Summary append(const Arguments& arguments) {
    return SampleMessagesDatabase::append(
        arguments.path,
        {.content = arguments.options.content,
         .messageCount = arguments.appendedCount,
         .newest = dateFrom(arguments.newest),
         .keepsLog = arguments.options.keepsLog},
        progressOnTerminal(arguments.appendedCount));
}

int run(int argc, char** argv) {
    CLI::App app("Creates a Messages database with invented chats.", "make-sample-chatdb");
    Arguments arguments;
    declareOptions(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }
    const bool appends = app.count("--append") > 0;
    const auto summary = appends ? append(arguments) : create(arguments);
    fmt::print(
        "{}: {} messages {}, {} chats, last row {}\n",
        arguments.path,
        summary.messageCount,
        appends ? "added" : "written",
        summary.chatCount,
        summary.lastRowID);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make-sample-chatdb: %s\n", error.what());
        return failed;
    }
}
