// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/ScanCommand.h"

#include "OrvelAgent/account/IDToken.h"
#include "OrvelAgent/base/Configuration.h"
#include "core/Errors.h"
#include "core/messages/ChatDatabaseSnapshot.h"
#include "tools/scan/OverlayUserDefaults.h"
#include "tools/scan/PreviewSession.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <functional>
#include <utility>

namespace orvel {

namespace {

/// Prints the question to standard error and returns at once. Later calls `answer` with whether the
/// user's line begins with "y".
void ask(const char* question, std::function<void(bool)> answer) {
    std::fputs(question, stderr);
    auto* notifier = new QSocketNotifier( // NOLINT(cppcoreguidelines-owning-memory)
        STDIN_FILENO,
        QSocketNotifier::Read,
        QCoreApplication::instance());
    QObject::connect(
        notifier, &QSocketNotifier::activated, notifier, [notifier, answer = std::move(answer)] {
            // A terminal delivers whole lines.
            std::array<char, 256> line{};
            const ssize_t length = read(STDIN_FILENO, line.data(), line.size());
            notifier->setEnabled(false);
            notifier->deleteLater();
            if (length <= 0) {
                // The terminal is closed. That is not a "no", so end like after a hang-up.
                std::raise(SIGHUP);
                return;
            }
            answer(line[0] == 'y' || line[0] == 'Y');
        });
}

PlatformOptions scanPlatformOptions(const ScanArguments& arguments, bool isInteractive) {
    PlatformOptions options = platformOptions(arguments);
    if (isInteractive) {
        options.askForContacts = [](const std::function<void(bool)>& answer) {
            ask("May Orvel Agent read your contacts, to recognize people by all their numbers and "
                "addresses and to send their names? [y/N] ",
                answer);
        };
    }
    return options;
}

QCoro::Task<std::optional<tavrin::Secret>> provide(std::optional<tavrin::Secret> token) {
    co_return token;
}

} // namespace

ScanCommand::ScanCommand(
    ScanArguments arguments, std::shared_ptr<tavrin::LiveSnapshots> liveSnapshots)
    : arguments_(std::move(arguments)),
      isInteractive_(isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0),
      platform_(makePlatform(scanPlatformOptions(arguments_, isInteractive_))),
      worker_(std::make_unique<Worker>()) {
    // The user's choices come from the agent's user defaults, even with --state.
    const tavrin::CollectionPreferences preferences(*platform_.userDefaults);
    choices_.mode = arguments_.mode.value_or(preferences.mode());
    choices_.scope = arguments_.scope.value_or(preferences.scope());
    if (arguments_.isPreview && !arguments_.knownHandlesFile &&
        choices_.scope == tavrin::ThreadScope::KnownContactsOnly) {
        throw UsageError(
            "A preview of known contacts needs --known-handles FILE, or --scope allThreads.");
    }

    tavrin::UserDefaults* defaults = platform_.userDefaults.get();
    if (arguments_.stateFile) {
        stateDefaults_ = makeUserDefaults(*arguments_.stateFile);
        defaults = stateDefaults_.get();
    }
    URLSession* session = platform_.urlSession.get();
    if (arguments_.isPreview) {
        previewDefaults_ = std::make_unique<OverlayUserDefaults>(*defaults);
        defaults = previewDefaults_.get();
        previewSession_ = std::make_unique<PreviewSession>(
            arguments_.previewFile,
            arguments_.knownHandlesFile ? readKnownHandles(*arguments_.knownHandlesFile)
                                        : std::vector<std::string>());
        session = previewSession_.get();
    } else if (!arguments_.token) {
        auth_ = makeAuthService(platform_, *worker_);
    }

    watermarkStore_ = std::make_unique<WatermarkStore>(*defaults);
    const Configuration configuration(*platform_.bundle);
    const IngestClient ingest(
        APIClient(
            *session,
            *worker_,
            configuration,
            arguments_.apiURL.value_or(configuration.apiBaseURL()),
            APIClient::TokenProvider(),
            IngestClient::requestTimeout),
        configuration.shortVersion());

    CollectorService::Options options;
    options.sourcePath =
        arguments_.sourcePath.value_or(tavrin::ChatDatabaseSnapshot::defaultSourcePath());
    options.backfillPause = tavrin::Seconds(arguments_.isPreview ? 0 : arguments_.backfillPause);
    options.retryDelays = arguments_.retryDelays;
    options.liveSnapshots = std::move(liveSnapshots);
    collector_ = std::make_unique<CollectorService>(
        *watermarkStore_,
        ingest,
        *platform_.fileCopier,
        *platform_.clock,
        *worker_,
        *platform_.logStore,
        std::move(options));
    contacts_ =
        std::make_unique<ContactBridge>(*platform_.addressBook, *worker_, *platform_.logStore);
    scanRun_ = std::make_unique<ScanRun>(
        ScanRun::Services{
            ingest,
            *contacts_,
            *collector_,
            *platform_.clock,
            [this](tavrin::CancellationToken cancellation) {
                return this->session(std::move(cancellation));
            }},
        choices_,
        Logger(*platform_.logStore, "collector"));
    progressLine_ = std::make_unique<ScanProgressLine>(
        stderr, isatty(STDERR_FILENO) != 0 && !arguments_.isVerbose, *platform_.clock);
    QObject::connect(collector_.get(), &CollectorService::progressed, collector_.get(), [this] {
        progressLine_->show(collector_->progress());
    });
}

ScanCommand::~ScanCommand() {
    // End the run before the members are destroyed.
    cancellation_.cancel();
    worker_->stop();
}

QCoro::Task<std::optional<AccountSession>>
ScanCommand::session(tavrin::CancellationToken cancellation) {
    if (auth_) {
        co_return co_await auth_->session(std::move(cancellation));
    }
    // A preview sends nothing, so any token will do.
    const tavrin::Secret token = arguments_.token.value_or(tavrin::Secret("preview"));
    AccountSession session;
    session.account = userIDOf(token.text());
    session.tokenProvider = [token] {
        return provide(token);
    };
    co_return session;
}

QCoro::Task<int> ScanCommand::run() {
    std::string failure;
    std::optional<CollectorService::ScanSummary> summary;
    try {
        if (auth_) {
            co_await awaitSession();
        }
        auto addressBookUse = ScanRun::AddressBookUse::None;
        if (arguments_.usesAddressBook) {
            addressBookUse = isInteractive_ ? ScanRun::AddressBookUse::AskAndRead
                                            : ScanRun::AddressBookUse::Read;
        }
        summary = co_await scanRun_->run(addressBookUse, arguments_.since, cancellation_.token());
        if (!summary) {
            failure = "The sign-in has ended.";
        } else if (scanRun_->hasSessionEnded() && !summary->error) {
            summary->error = "The sign-in has ended.";
        }
    } catch (const tavrin::TaskCancelled& cancelled) {
        if (scanRun_->isConsultingAddressBook()) {
            // No scan has started, so there is no summary to print.
            throw;
        }
        failure = cancelled.what();
    } catch (const std::exception&) {
        failure = tavrin::description(std::current_exception());
    }
    if (!summary) {
        collector_->recordAbort(std::move(failure));
        summary = collector_->history().front();
    }
    if (auth_) {
        co_await awaitStorage();
    }
    if (!print(*summary)) {
        fmt::print(stderr, "orvel-scan: could not write the summary\n");
        co_return failed;
    }
    co_return summary->error ? failed : succeeded;
}

QCoro::Task<> ScanCommand::awaitSession() {
    co_await auth_->restored(cancellation_.token());
    if (!auth_->isSignedIn()) {
        throw std::runtime_error(
            "You are not signed in. Sign in with orvel-scan --sign-in, or give a bearer token.");
    }
}

QCoro::Task<> ScanCommand::awaitStorage() {
    // A refreshed session must be stored, because the old one may be invalid. After a signal, wait
    // only a short time, because the keychain may be locked.
    tavrin::CancellationSource end;
    std::unique_ptr<Clock::Timer> timer;
    const auto registration = cancellation_.token().onCancel(
        [&] { timer = platform_.clock->schedule(shutdownTimeout, [&end] { end.cancel(); }); });
    try {
        co_await auth_->stored(end.token());
    } catch (const tavrin::TaskCancelled&) {
        Logger(*platform_.logStore, "auth").error("the session could not be stored in time");
    }
}

void ScanCommand::cancel() {
    cancellation_.cancel();
}

bool ScanCommand::print(const CollectorService::ScanSummary& summary) {
    progressLine_->clear();
    // With --verbose, the log has said so.
    if (const auto& postponement = collector_->postponement();
        postponement && !arguments_.isVerbose) {
        fmt::print(stderr, "orvel-scan: {}\n", *postponement);
    }
    // If standard output contains the preview, print the summary to standard error.
    const bool isApart = !arguments_.printsJSON && arguments_.isPreview && !arguments_.previewFile;
    std::FILE* stream = isApart ? stderr : stdout;
    const std::string text = arguments_.printsJSON
                                 ? json(summary) + "\n"
                                 : describe(summary, watermarkStore_->isBackfillDone());
    return std::fputs(text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
}

} // namespace orvel
