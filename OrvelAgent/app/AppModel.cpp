// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/AppModel.h"

#include "OrvelAgent/app/Permissions.h"
#include "OrvelAgent/base/Sleep.h"
#include "core/Errors.h"
#include "core/UserDefaultsKeys.h"
#include "core/messages/ChatDatabaseSnapshot.h"

#include <QScopedValueRollback>
#include <QUuid>

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <exception>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// Under whose name the updater framework logs, where it does.
constexpr const char* updaterSubsystem = "org.sparkle-project.Sparkle";

std::string sourcePathOf(const CollectorService::Options& options) {
    return options.sourcePath.empty() ? tavrin::ChatDatabaseSnapshot::defaultSourcePath()
                                      : options.sourcePath;
}

CollectorService::Options withSource(CollectorService::Options options, std::string path) {
    options.sourcePath = std::move(path);
    return options;
}

/// Makes the application one whose questions come to the front, for as long as this lives.
class InFront final {
public:
    explicit InFront(ApplicationFocus& focus) : focus_(focus), former_(focus.activationPolicy()) {
        focus_.setActivationPolicy(ApplicationFocus::ActivationPolicy::Regular);
        focus_.activate();
    }
    ~InFront() { focus_.setActivationPolicy(former_); }
    InFront(const InFront&) = delete;
    InFront& operator=(const InFront&) = delete;

private:
    ApplicationFocus& focus_;
    ApplicationFocus::ActivationPolicy former_;
};

} // namespace

AppModel::AppModel(
    Platform& platform, UpdatePresenter& updatePresenter, CollectorService::Options options)
    : platform_(platform),
      configuration_(*platform.bundle),
      sourcePath_(sourcePathOf(options)),
      log_(*platform.logStore, "lifecycle"),
      worker_(std::make_unique<Worker>()) {
    const AuthService::Dependencies dependencies{
        *platform_.urlSession,
        *worker_,
        *platform_.keychain,
        *platform_.webAuthenticationSession,
        *platform_.workspace,
        *platform_.clock,
        *platform_.logStore};
    auth_ = std::make_unique<AuthService>(dependencies, configuration_);
    updater_ = std::make_unique<UpdaterService>(
        *platform_.bundle, *platform_.softwareUpdater, updatePresenter);
    contacts_ =
        std::make_unique<ContactBridge>(*platform_.addressBook, *worker_, *platform_.logStore);
    contactsAvailability_ = contacts_->availability();

    const tavrin::CollectionPreferences preferences(*platform_.userDefaults);
    mode_ = preferences.mode();
    scope_ = preferences.scope();
    startAtLogin_ =
        platform_.userDefaults->boolean(tavrin::UserDefaultsKeys::startAtLoginKey).value_or(false);

    watermarkStore_ = std::make_unique<WatermarkStore>(*platform_.userDefaults);
    ingest_.emplace(
        APIClient(
            *platform_.urlSession,
            *worker_,
            configuration_,
            configuration_.apiBaseURL(),
            auth_->tokenProvider(),
            IngestClient::requestTimeout,
            auth_->sessionExpiredHandler()),
        configuration_.shortVersion());
    collector_ = std::make_unique<CollectorService>(
        *watermarkStore_,
        *ingest_,
        *platform_.fileCopier,
        *platform_.clock,
        *worker_,
        *platform_.logStore,
        withSource(std::move(options), sourcePath_));
    hasFullDiskAccess_ = Permissions::hasFullDiskAccess(sourcePath_);

    connect(auth_.get(), &AuthService::changed, this, &AppModel::serviceChanged);
    connect(collector_.get(), &CollectorService::changed, this, &AppModel::serviceChanged);
    connect(updater_.get(), &UpdaterService::changed, this, &AppModel::serviceChanged);
    reduceMotionChanges_ = platform_.motionPreference->onChange([this] { serviceChanged(); });

    syncAttentionFlash();
    startCollecting();
}

AppModel::~AppModel() {
    blockSignals(true);
    lifetime_.cancel();
    collection_.cancel();
    syncAttentionFlash();
    // Whatever still waits for the worker goes on in here, sees that it is cancelled, and ends.
    worker_->stop();
    assert(!collector_->isScanning());
}

void AppModel::startCollecting() {
    if (!loop_) {
        loop_.emplace();
        *loop_ = collect(collection_.token());
    }
}

QCoro::Task<> AppModel::collect(tavrin::CancellationToken cancellation) {
    try {
        // Who is signed in is not known before.
        co_await auth_->restored(cancellation);
        while (!cancellation.isCancelled()) {
            if (!hasFullDiskAccess_) {
                co_await refreshPermissions();
            }
            const bool isBlocked = blockedReason().has_value();
            if (!isBlocked) {
                co_await performScan(cancellation);
            }
            const tavrin::Seconds wait = isBlocked ? blockedRecheck : waitAfterScan();
            co_await sleepFor(platform_.clock.get(), wait, cancellation);
        }
    } catch (const tavrin::TaskCancelled&) {
        // The user leaves.
    } catch (const std::exception& error) {
        log_.error("collection has ended: {}", error.what());
    }
    loopEnd_.resolve();
}

QCoro::Task<> AppModel::performScan(tavrin::CancellationToken cancellation) {
    while (scanEnd_) {
        co_await scanEnd_->settled(cancellation);
    }
    const Deferred<void> end = scanEnd_.emplace();
    const std::optional<QUuid> before = newestScan();
    bool isCancelled = false;
    try {
        co_await scanOnce(cancellation);
    } catch (const tavrin::TaskCancelled&) {
        isCancelled = true;
    } catch (const std::exception& error) {
        // Whatever it is, the next scan may do better.
        collector_->recordAbort(error.what());
    }
    if (!isCancelled && newestScan() != before) {
        const bool hasFailed = collector_->history().front().error.has_value();
        consecutiveFailures_ = hasFailed ? consecutiveFailures_ + 1 : 0;
    }
    scanEnd_.reset();
    end.resolve();
    if (isCancelled) {
        throw tavrin::TaskCancelled();
    }
}

QCoro::Task<> AppModel::scanOnce(tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    if (blockedReason()) {
        co_return;
    }
    CollectorService::HintSet hints;
    std::optional<std::string> failure;
    try {
        hints = co_await ingest_->fetchKnownHandleHints(cancellation);
    } catch (const std::exception& error) {
        failure = error.what();
    }
    cancellation.throwIfCancelled();
    if (failure && scope_ == tavrin::ThreadScope::KnownContactsOnly) {
        collector_->recordAbort(
            "Could not fetch the known-contact list, so this scan was skipped rather than "
            "reporting a false empty result: " +
            *failure);
        co_return;
    }
    if (failure) {
        log_.error("going on without the known-contact list: {}", *failure);
    }

    ContactBridge::Expansion expansion = co_await contacts_->expand(std::move(hints), cancellation);
    ContactBridge::IdentityIndex identities;
    if (contacts_->availability() == ContactBridge::Availability::Granted) {
        if (expansion.added == 0) {
            collector_->noteContactsAddedNothing(expansion.scanned);
        }
        identities = co_await contacts_->buildIdentityIndex(cancellation);
    } else {
        collector_->noteContactsUnavailable();
    }

    co_await collector_->runScan(
        mode_,
        scope_,
        std::move(expansion.hints),
        std::nullopt,
        std::move(identities),
        cancellation);
    cancellation.throwIfCancelled();

    std::vector<std::string> lines = co_await LogReader::recentLines(
        platform_.logStore.get(),
        platform_.clock.get(),
        logSubsystems(),
        diagnosticsWindow,
        cancellation);
    co_await ingest_->sendDiagnostics(std::move(lines), cancellation);
}

tavrin::Seconds AppModel::waitAfterScan() const {
    if (consecutiveFailures_ < 1) {
        return scanInterval;
    }
    const std::int64_t doublings = std::min<std::int64_t>(consecutiveFailures_ - 1, 5);
    return std::min(backoffUnit * static_cast<double>(1 << doublings), backoffCap);
}

std::optional<QUuid> AppModel::newestScan() const {
    const auto& history = collector_->history();
    return history.empty() ? std::nullopt : std::optional(history.front().id);
}

QCoro::Task<> AppModel::stop() {
    tavrin::CancellationSource timeLimit;
    const auto giveUp = [timeLimit]() mutable {
        timeLimit.cancel();
    };
    const auto registration = lifetime_.token().onCancel(giveUp);
    collection_.cancel();
    std::optional<tavrin::PlatformError> failure;
    try {
        const auto timer = platform_.clock->schedule(lastChance, giveUp);
        co_await loopEnd_.settled(timeLimit.token());
        failure = co_await auth_->stored(timeLimit.token());
    } catch (const tavrin::TaskCancelled&) {
        log_.error("quitting before everything had come to its end");
        co_return;
    } catch (const std::exception& error) {
        log_.error("quitting without waiting for what was left to do: {}", error.what());
        co_return;
    }
    if (failure) {
        log_.error("the session will not outlive this process: {}", failure->what());
    }
}

QCoro::Task<> AppModel::refreshPermissions() {
    try {
        const bool hasAccess =
            co_await Permissions::probeFullDiskAccess(worker_.get(), sourcePath_);
        if (lifetime_.token().isCancelled()) {
            co_return;
        }
        if (std::exchange(hasFullDiskAccess_, hasAccess) != hasAccess) {
            syncAttentionFlash();
            startCollecting();
            Q_EMIT changed();
        }
        if (readContactsAvailability()) {
            Q_EMIT changed();
        }
    } catch (const std::exception& error) {
        log_.error("could not look at the permissions: {}", error.what());
    }
}

QCoro::Task<> AppModel::requestContactsAccess() {
    if (platform_.processControl->isDebuggerAttached()) {
        collector_->noteDebuggerBlocksPrompt();
        co_return;
    }
    try {
        if (isRequestingContacts_) {
            // The question comes to the front; what is to follow its answer follows once.
            platform_.applicationFocus->activate();
            co_await contacts_->requestAccess(lifetime_.token());
            co_return;
        }
        {
            const QScopedValueRollback<bool> requesting(isRequestingContacts_, true);
            const InFront inFront(*platform_.applicationFocus);
            const bool isGranted = co_await contacts_->requestAccess(lifetime_.token());
            if (!isGranted) {
                collector_->noteContactsRequestIgnored();
            }
        }
        if (readContactsAvailability()) {
            Q_EMIT changed();
        }
        if (contactsAvailability_ == ContactBridge::Availability::Granted) {
            co_await rescanWithContacts(collection_.token());
        }
    } catch (const tavrin::TaskCancelled&) {
        // The user leaves.
    } catch (const std::exception& error) {
        log_.error("could not ask for the contacts: {}", error.what());
    }
}

QCoro::Task<> AppModel::rescanWithContacts(tavrin::CancellationToken cancellation) {
    // Conversations that were passed over may match now.
    try {
        co_await collector_->resetWatermark();
    } catch (const tavrin::PlatformError& error) {
        log_.error("could not forget the progress of earlier scans: {}", error.what());
    }
    co_await performScan(cancellation);
}

bool AppModel::readContactsAvailability() {
    const ContactBridge::Availability now = contacts_->availability();
    return std::exchange(contactsAvailability_, now) != now;
}

QCoro::Task<> AppModel::rescanFromBeginning() {
    std::optional<std::string> failure;
    try {
        co_await collector_->resetWatermark();
    } catch (const std::exception& error) {
        failure = fmt::format("The re-scan could not be prepared ({}).", error.what());
    }
    setError(&AppModel::rescanError_, std::move(failure));
}

void AppModel::syncAttentionFlash() {
    // With reduced motion the image stands still: nothing would change but the time.
    const bool flashes = needsAttention() && !platform_.motionPreference->shouldReduceMotion() &&
                         !collector_->isScanning() && !collector_->isPaused() &&
                         !lifetime_.token().isCancelled();
    if (flashes && !flashing_) {
        flashing_.emplace();
        flash_ = flash(flashing_->token());
    } else if (!flashes && flashing_) {
        std::exchange(flashing_, std::nullopt)->cancel();
        setAttentionFlashOn(false);
    }
}

QCoro::Task<> AppModel::flash(tavrin::CancellationToken cancellation) {
    try {
        while (true) {
            co_await sleepFor(platform_.clock.get(), brandBeat, cancellation);
            setAttentionFlashOn(true);
            co_await sleepFor(platform_.clock.get(), alertBeat, cancellation);
            setAttentionFlashOn(false);
        }
    } catch (const tavrin::TaskCancelled&) {
        // Whoever cancelled it shows the brand image again.
    } catch (const std::exception& error) {
        log_.error("the attention flash has ended: {}", error.what());
        setAttentionFlashOn(false);
    }
}

void AppModel::setAttentionFlashOn(bool isOn) {
    if (std::exchange(attentionFlashOn_, isOn) != isOn) {
        Q_EMIT changed();
    }
}

void AppModel::relaunch() {
    platform_.processControl->scheduleRelaunch();
    platform_.processControl->terminate();
}

void AppModel::setMode(tavrin::CollectionMode mode) {
    mode_ = mode;
    save([mode](tavrin::UserDefaults& defaults) {
        tavrin::CollectionPreferences(defaults).setMode(mode);
    });
    Q_EMIT changed();
}

void AppModel::setScope(tavrin::ThreadScope scope) {
    scope_ = scope;
    save([scope](tavrin::UserDefaults& defaults) {
        tavrin::CollectionPreferences(defaults).setScope(scope);
    });
    Q_EMIT changed();
}

void AppModel::setStartAtLogin(bool startsAtLogin) {
    startAtLogin_ = startsAtLogin;
    save([startsAtLogin](tavrin::UserDefaults& defaults) {
        defaults.setBoolean(tavrin::UserDefaultsKeys::startAtLoginKey, startsAtLogin);
    });
    // The switch is the user's wish; the system may have its reasons.
    const auto report = [log = log_](const std::optional<tavrin::PlatformError>& failure) {
        if (failure) {
            log.info("could not change the login item: {}", failure->what());
        }
    };
    if (startsAtLogin) {
        platform_.loginItem->registerItem(report);
    } else {
        platform_.loginItem->unregisterItem(report);
    }
    Q_EMIT changed();
}

QCoro::Task<> AppModel::save(Write write) {
    auto job = [&defaults = *platform_.userDefaults, write = std::move(write)] {
        write(defaults);
    };
    std::optional<std::string> failure;
    try {
        co_await worker_->run(std::move(job));
    } catch (const std::exception& error) {
        failure = fmt::format(
            "Your last choice holds only until {} quits, because it could not be saved ({}).",
            configuration_.displayName(),
            error.what());
    }
    setError(&AppModel::settingsError_, std::move(failure));
}

void AppModel::setError(
    std::optional<std::string> AppModel::*which, std::optional<std::string> error) {
    if (error) {
        log_.error("{}", *error);
    }
    if (this->*which != error) {
        this->*which = std::move(error);
        Q_EMIT changed();
    }
}

LogReader::Subsystems AppModel::logSubsystems() const {
    return {configuration_.bundleIdentifier(), updaterSubsystem};
}

bool AppModel::needsAttention() const {
    return !auth_->isSignedIn() || !hasFullDiskAccess_;
}

std::optional<std::string> AppModel::blockedReason() const {
    if (!auth_->isSignedIn()) {
        return "Sign in to start collecting.";
    }
    if (!hasFullDiskAccess_) {
        return "Full Disk Access is required to read Messages.";
    }
    if (collector_->isPaused()) {
        return "Collection is paused.";
    }
    return std::nullopt;
}

StatusIcon AppModel::statusIcon() const {
    if (collector_->isScanning()) {
        return StatusIcon::Scanning;
    }
    if (collector_->isPaused()) {
        return StatusIcon::Paused;
    }
    if (needsAttention()) {
        if (platform_.motionPreference->shouldReduceMotion()) {
            return StatusIcon::BrandAlert;
        }
        return attentionFlashOn_ ? StatusIcon::Attention : StatusIcon::Brand;
    }
    return updater_->updateAwaitingAttention() ? StatusIcon::BrandAlert : StatusIcon::Brand;
}

std::string AppModel::statusAccessibilityLabel() const {
    const std::string& name = configuration_.displayName();
    switch (statusIcon()) {
    case StatusIcon::Brand:
        return name;
    case StatusIcon::Scanning:
        return name + ": scanning";
    case StatusIcon::Paused:
        return name + ": collection paused";
    case StatusIcon::BrandAlert:
    case StatusIcon::Attention:
        break;
    }
    if (const auto reason = blockedReason()) {
        return name + ": " + *reason;
    }
    return name + (updater_->updateAwaitingAttention() ? ": an update is ready to install"
                                                       : ": needs attention");
}

void AppModel::serviceChanged() {
    syncAttentionFlash();
    Q_EMIT changed();
}

} // namespace orvel
