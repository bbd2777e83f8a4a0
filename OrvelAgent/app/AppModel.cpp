// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/AppModel.h"

#include "core/messages/ChatDatabaseSnapshot.h"
#include "core/messages/SnapshotDirectory.h"

#include <fmt/format.h>

#include <cassert>
#include <exception>

namespace orvel {

namespace {

/// Under this subsystem the updater framework writes to the system log.
constexpr const char* updaterSubsystem = "org.sparkle-project.Sparkle";

CollectorService::Options withSource(CollectorService::Options options) {
    if (options.sourcePath.empty()) {
        options.sourcePath = tavrin::ChatDatabaseSnapshot::defaultSourcePath();
    }
    return options;
}

} // namespace

AppModel::AppModel(
    Platform& platform, UpdatePresenter& updatePresenter, CollectorService::Options options)
    : platform_(platform),
      configuration_(*platform.bundle),
      log_(*platform.logStore, "lifecycle"),
      auth_(
          {*platform.urlSession,
           worker_,
           *platform.keychain,
           *platform.webAuthenticationSession,
           *platform.workspace,
           *platform.clock,
           *platform.logStore},
          configuration_),
      updater_(*platform.bundle, *platform.softwareUpdater, updatePresenter),
      contacts_(*platform.addressBook, worker_, *platform.logStore),
      watermarkStore_(*platform.userDefaults),
      ingest_(
          APIClient(
              *platform.urlSession,
              worker_,
              configuration_,
              configuration_.apiBaseURL(),
              {},
              IngestClient::requestTimeout),
          configuration_.shortVersion()),
      collector_(
          watermarkStore_,
          ingest_,
          *platform.fileCopier,
          *platform.clock,
          scanWorker_,
          *platform.logStore,
          withSource(options)),
      permissions_(
          {contacts_,
           collector_,
           *platform.applicationFocus,
           *platform.processControl,
           scanWorker_},
          withSource(options).sourcePath,
          log_,
          lifetime_.token()),
      choices_(
          *platform.userDefaults, *platform.loginItem, worker_, log_, configuration_.displayName()),
      flash_(*platform.clock, log_),
      status_(
          {auth_, permissions_, collector_, updater_, flash_, *platform.motionPreference},
          configuration_.displayName()),
      scanRun_(
          {ingest_,
           contacts_,
           collector_,
           *platform.clock,
           [this](tavrin::CancellationToken cancellation) {
               return auth_.session(std::move(cancellation));
           }},
          choices_.collection(),
          log_),
      loop_(
          {auth_, permissions_, status_, collector_, scanRun_, *platform.clock, *platform.logStore},
          logSubsystems(),
          log_),
      reduceMotionChanges_(platform.motionPreference->onChange([this] { statusChanged(); })) {
    connect(&auth_, &AuthService::changed, this, &AppModel::statusChanged);
    connect(&collector_, &CollectorService::changed, this, &AppModel::statusChanged);
    connect(&updater_, &UpdaterService::changed, this, &AppModel::statusChanged);
    connect(&permissions_, &Permissions::changed, this, &AppModel::statusChanged);
    connect(&choices_, &SavedChoices::changed, this, &AppModel::changed);
    connect(&choices_, &SavedChoices::changed, this, [this] { scanRun_.applyChoices(); });
    connect(&flash_, &AttentionFlash::changed, this, &AppModel::attentionFlashChanged);
    syncAttentionFlash();
    abandonedCopies_ = removeAbandonedCopies();
    startCollecting();
}

AppModel::~AppModel() {
    blockSignals(true);
    lifetime_.cancel();
    loop_.cancel();
    // Coroutines that wait for a worker resume in these calls, see the cancellation and end.
    scanWorker_.stop();
    worker_.stop();
    assert(!collector_.isScanning());
}

QCoro::Task<> AppModel::removeAbandonedCopies() {
    try {
        co_await scanWorker_.run([] { tavrin::SnapshotDirectory::removeAbandoned(); });
    } catch (const std::exception& error) {
        log_.error("a copy of the database that an earlier run left stays: {}", error.what());
    }
}

QCoro::Task<> AppModel::stop() {
    tavrin::CancellationSource timeLimit;
    const auto stopWaiting = [timeLimit]() mutable {
        timeLimit.cancel();
    };
    const auto registration = lifetime_.token().onCancel(stopWaiting);
    loop_.cancel();
    std::optional<tavrin::PlatformError> failure;
    try {
        const auto timer = platform_.clock->schedule(shutdownTimeout, stopWaiting);
        co_await loop_.ended(timeLimit.token());
        failure = co_await auth_.stored(timeLimit.token());
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

QCoro::Task<> AppModel::requestContactsAccess() {
    try {
        const bool isGranted = co_await permissions_.requestContactsAccess();
        if (isGranted) {
            // Conversations that matched no known handle before may match now.
            co_await loop_.rescan();
        }
    } catch (const tavrin::TaskCancelled&) {
        // Cancellation is a normal end.
    } catch (const std::exception& error) {
        log_.error("could not ask for the contacts: {}", error.what());
    }
}

QCoro::Task<> AppModel::rescanFromBeginning() {
    std::optional<std::string> failure;
    try {
        co_await collector_.resetWatermark();
    } catch (const std::exception& error) {
        failure = fmt::format("The re-scan could not be prepared ({}).", error.what());
        log_.error("{}", *failure);
    }
    if (rescanError_ != failure) {
        rescanError_ = std::move(failure);
        Q_EMIT changed();
    }
}

void AppModel::syncAttentionFlash() {
    flash_.setRunning(status_.shouldFlash());
}

void AppModel::relaunch() {
    platform_.processControl->scheduleRelaunch();
    platform_.processControl->terminate();
}

LogReader::Subsystems AppModel::logSubsystems() const {
    return {configuration_.bundleIdentifier(), updaterSubsystem};
}

void AppModel::statusChanged() {
    syncAttentionFlash();
    Q_EMIT changed();
}

} // namespace orvel
