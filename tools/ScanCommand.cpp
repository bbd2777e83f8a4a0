// SPDX-License-Identifier: Apache-2.0
#include "tools/ScanCommand.h"

#include "OrvelAgent/Configuration.h"
#include "core/ChatDatabaseSnapshot.h"
#include "tools/OverlayUserDefaults.h"
#include "tools/PreviewSession.h"
#include "tools/TerminalQuestion.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

namespace orvel {

namespace {

constexpr int scanDone = 0;
constexpr int scanFailed = 1;

PlatformOptions platformOptions(const ScanArguments& arguments, bool isInteractive) {
    PlatformOptions options;
    options.defaultsFile = arguments.stateFile;
    if (arguments.certificateFile) {
        options.extraCertificates.push_back(*arguments.certificateFile);
    }
    if (arguments.isVerbose) {
        options.standardErrorLevel = LogLevel::Info;
    }
    if (isInteractive) {
        options.askForContacts = [](const std::function<void(bool)>& answer) {
            TerminalQuestion::ask(
                "May Orvel Agent read your contacts, to recognize people by all their numbers and "
                "addresses and to send their names? [y/N] ",
                answer);
        };
    }
    return options;
}

QCoro::Task<std::optional<std::string>> provide(std::optional<std::string> token) {
    co_return token;
}

} // namespace

ScanCommand::ScanCommand(ScanArguments arguments)
    : arguments_(std::move(arguments)),
      isInteractive_(isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0),
      platform_(makePlatform(platformOptions(arguments_, isInteractive_))),
      worker_(std::make_unique<Worker>()) {
    tavrin::UserDefaults* defaults = platform_.userDefaults.get();
    URLSession* session = platform_.urlSession.get();
    std::optional<std::string> token;
    if (arguments_.isPreview) {
        previewDefaults_ = std::make_unique<OverlayUserDefaults>(*platform_.userDefaults);
        defaults = previewDefaults_.get();
        previewSession_ = std::make_unique<PreviewSession>(
            arguments_.previewFile,
            arguments_.knownHandlesFile ? readKnownHandles(*arguments_.knownHandlesFile)
                                        : std::vector<std::string>());
        session = previewSession_.get();
    } else {
        token = arguments_.token;
    }
    const tavrin::CollectionPreferences preferences(*defaults);
    arguments_.mode = arguments_.mode.value_or(preferences.mode());
    arguments_.scope = arguments_.scope.value_or(preferences.scope());

    if (arguments_.isPreview && !arguments_.knownHandlesFile &&
        *arguments_.scope == tavrin::ThreadScope::KnownContactsOnly) {
        throw UsageError(
            "A preview of known contacts needs --known-handles FILE, or --scope allThreads.");
    }

    const Configuration configuration(*platform_.bundle);
    APIClient client(
        *session,
        *worker_,
        configuration,
        arguments_.apiURL.value_or(configuration.apiBaseURL()),
        [token] { return provide(token); },
        IngestClient::requestTimeout);
    watermarkStore_ = std::make_unique<WatermarkStore>(*defaults);
    ingest_ = std::make_unique<IngestClient>(std::move(client), configuration.shortVersion());

    CollectorService::Options options;
    options.sourcePath =
        arguments_.sourcePath.value_or(tavrin::ChatDatabaseSnapshot::defaultSourcePath());
    options.backfillPause = tavrin::Seconds(arguments_.isPreview ? 0 : arguments_.backfillPause);
    options.retryDelays = arguments_.retryDelays;
    collector_ = std::make_unique<CollectorService>(
        *watermarkStore_,
        *ingest_,
        *platform_.fileCopier,
        *platform_.clock,
        *worker_,
        *platform_.logStore,
        std::move(options));
    progressLine_ = std::make_unique<ScanProgressLine>(
        stderr, isatty(STDERR_FILENO) != 0 && !arguments_.isVerbose, *platform_.clock);
    QObject::connect(collector_.get(), &CollectorService::progressed, collector_.get(), [this] {
        progressLine_->show(collector_->progress());
    });
}

ScanCommand::~ScanCommand() = default;

QCoro::Task<int> ScanCommand::run() {
    std::string failure;
    try {
        People people;
        people.hints = co_await fetchHints();
        if (arguments_.usesAddressBook) {
            people = co_await consultAddressBook(std::move(people.hints));
        }
        const auto summary = co_await collector_->runScan(
            *arguments_.mode,
            *arguments_.scope,
            std::move(people.hints),
            arguments_.since,
            std::move(people.identities),
            cancellation_.token());
        if (summary) {
            print(*summary);
            co_return summary->error ? scanFailed : scanDone;
        }
    } catch (const std::exception& error) {
        failure = error.what();
    }
    collector_->recordAbort(std::move(failure));
    print(collector_->history().front());
    co_return scanFailed;
}

QCoro::Task<CollectorService::HintSet> ScanCommand::fetchHints() {
    std::string failure;
    try {
        co_return co_await ingest_->fetchKnownHandleHints(cancellation_.token());
    } catch (const std::exception& error) {
        failure = error.what();
    }
    cancellation_.token().throwIfCancelled();
    if (*arguments_.scope == tavrin::ThreadScope::KnownContactsOnly) {
        throw std::runtime_error(
            "Could not fetch the known-contact list, so this scan was skipped rather than "
            "reporting a false empty result: " +
            failure);
    }
    co_return CollectorService::HintSet();
}

QCoro::Task<ScanCommand::People> ScanCommand::consultAddressBook(CollectorService::HintSet hints) {
    ContactBridge bridge(*platform_.addressBook, *worker_, *platform_.logStore);
    if (isInteractive_ && bridge.availability() == ContactBridge::Availability::NotDetermined) {
        co_await bridge.requestAccess();
    }
    ContactBridge::Expansion expansion = co_await bridge.expand(std::move(hints));
    if (bridge.availability() != ContactBridge::Availability::Granted) {
        collector_->noteContactsUnavailable();
    } else if (expansion.added == 0 && expansion.scanned > 0) {
        collector_->noteContactsAddedNothing(expansion.scanned);
    }
    People people;
    people.hints = std::move(expansion.hints);
    people.identities = co_await bridge.buildIdentityIndex();
    co_return people;
}

void ScanCommand::print(const CollectorService::ScanSummary& summary) {
    progressLine_->clear();
    if (arguments_.printsJSON) {
        fmt::print("{}\n", json(summary));
    } else {
        // A preview on standard output is data: the words must not mix with it.
        std::FILE* stream = arguments_.isPreview && !arguments_.previewFile ? stderr : stdout;
        fmt::print(stream, "{}", describe(summary, watermarkStore_->isBackfillDone()));
    }
    std::fflush(stdout);
}

} // namespace orvel
