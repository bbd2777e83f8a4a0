// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/AppcastUpdater.h"

#include "core/Errors.h"
#include "core/UserDefaults.h"
#include "platform/UpdateObserver.h"
#include "platform/UpdatePresenter.h"
#include "platform/linux/update/Appcast.h"
#include "platform/linux/update/StagedUpdate.h"
#include "platform/linux/update/UpdateError.h"
#include "platform/linux/update/UpdateOffer.h"

#include <QObject>
#include <QThreadPool>

#include <fmt/format.h>
#include <gnu/libc-version.h>
#include <sys/utsname.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <exception>
#include <system_error>
#include <utility>
#include <variant>

namespace orvel {

namespace {

using tavrin::URLError;
using Resource = UpdateError::Resource;

constexpr tavrin::Seconds feedTimeout{60};
/// Of a large update over a slow line.
constexpr tavrin::Seconds downloadTimeout{3'600};

/// The reply, if it is one of status 200.
const URLResponse& checkedReply(const URLResult& result, Resource resource) {
    if (const auto* error = std::get_if<URLError>(&result)) {
        throw UpdateError(UpdateError::NotLoaded{resource, error->what()});
    }
    const auto& response = std::get<URLResponse>(result);
    if (!response.redirect.empty()) {
        // Which would also be refused when followed; but it deserves a word of its own.
        const bool isToPlainHTTP = !response.redirect.starts_with("https://");
        throw UpdateError(UpdateError::Redirected{resource, isToPlainHTTP});
    }
    if (response.status != 200) {
        throw UpdateError(UpdateError::BadStatus{resource, response.status});
    }
    return response;
}

void makeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw tavrin::PlatformError::fromErrno(
            error.value(), "Could not make the folder " + folder.string());
    }
}

} // namespace

/// What the worker opens and the session's thread fills, until the completion runs.
struct AppcastUpdater::Download {
    bool receive(std::string_view piece) noexcept {
        try {
            file->append(piece);
            received = file->received();
            return true;
        } catch (...) {
            failure = std::current_exception();
            return false;
        }
    }

    std::optional<StagedUpdate> file;
    /// To be shown meanwhile.
    std::atomic<std::uint64_t> received = 0;
    std::exception_ptr failure;
};

struct AppcastUpdater::Cycle {
    bool isUserInitiated = false;
    /// It is shown gently and the user has not looked at it, so something newer may take its place.
    bool isUnseen = false;
    std::unique_ptr<URLSession::Task> task;
    std::optional<UpdateOffer> offer;
    std::filesystem::path place;
    std::shared_ptr<Download> download;
};

AppcastUpdater::Copy
AppcastUpdater::thisCopy(std::string_view version, std::filesystem::path packageFolder) {
    utsname system{};
    uname(&system);
    const UpdateVersion oldest = *UpdateVersion::parse("0");
    return {
        UpdateVersion::parse(version).value_or(oldest),
        UpdateInstallation(ProgramTraces::ofThisProcess(), std::move(packageFolder)),
        static_cast<const char*>(system.machine),
        UpdateVersion::parse(gnu_get_libc_version()).value_or(oldest)};
}

AppcastUpdater::AppcastUpdater(
    URLSession& session,
    Clock& clock,
    tavrin::UserDefaults& defaults,
    LogStore& logStore,
    Copy copy)
    : session_(session),
      clock_(clock),
      defaults_(defaults),
      logStore_(logStore),
      copy_(std::move(copy)),
      isAutomatic_(defaults.boolean(automaticKey).value_or(true)),
      lastCheck_(defaults.date(lastCheckKey)),
      skipped_(UpdateVersion::parse(defaults.string(skippedKey).value_or(""))),
      callbackContext_(std::make_unique<QObject>()),
      worker_(std::make_unique<QThreadPool>()),
      saver_(std::make_unique<QThreadPool>()) {
    worker_->setMaxThreadCount(1);
    saver_->setMaxThreadCount(1);
}

AppcastUpdater::~AppcastUpdater() {
    stop();
}

void AppcastUpdater::start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) {
    assert(state_ == State::Stopped);
    feed_ = std::move(feed);
    key_ = UpdateKey::fromBase64(feed_.publicKey);
    observer_ = &observer;
    presenter_ = &presenter;
    state_ = State::Idle;
    scheduleNextCheck();
}

void AppcastUpdater::stop() {
    timer_.reset();
    if (cycle_ && cycle_->task) {
        cycle_->task->cancel();
    }
    dropCycle();
    state_ = State::Stopped;
    observer_ = nullptr;
    presenter_ = nullptr;
}

void AppcastUpdater::scheduleCheck(tavrin::Seconds delay) {
    timer_.reset();
    if (isAutomatic_) {
        timer_ = clock_.schedule(delay, [this] { checkOnSchedule(); });
    }
}

void AppcastUpdater::scheduleNextCheck() {
    const tavrin::Seconds sinceLast = lastCheck_ ? clock_.now() - *lastCheck_ : checkInterval;
    // A last check in the future is one by a clock that has been put right since.
    scheduleCheck(std::clamp(checkInterval - sinceLast, tavrin::Seconds(0), checkInterval));
}

void AppcastUpdater::setAutomaticallyChecksForUpdates(bool isAutomatic) {
    isAutomatic_ = isAutomatic;
    saveChoice([isAutomatic](tavrin::UserDefaults& defaults) {
        defaults.setBoolean(automaticKey, isAutomatic);
    });
    if (state_ == State::Idle || (cycle_ && cycle_->isUnseen && !cycle_->task)) {
        scheduleNextCheck();
    }
}

void AppcastUpdater::checkForUpdates() {
    assert(state_ != State::Stopped);
    if (state_ == State::Idle) {
        check(true);
    } else if (state_ == State::Checking && !cycle_->isUserInitiated) {
        cycle_->isUserInitiated = true;
        presenter_->show(UpdatePresenter::Checking());
    } else {
        presenter_->showInFocus();
        noteUserAttention();
    }
}

void AppcastUpdater::checkOnSchedule() {
    if (cycle_) {
        loadFeed();
    } else {
        check(false);
    }
}

void AppcastUpdater::check(bool isUserInitiated) {
    timer_.reset();
    state_ = State::Checking;
    cycle_ = std::make_shared<Cycle>();
    cycle_->isUserInitiated = isUserInitiated;
    if (!key_) {
        refuse(UpdateError(UpdateError::BadKey()).what());
        return;
    }
    loadFeed();
    if (isUserInitiated) {
        presenter_->show(UpdatePresenter::Checking());
    }
}

void AppcastUpdater::loadFeed() {
    URLRequest request;
    request.url = feed_.url;
    request.timeout = feedTimeout;
    cycle_->task = session_.start(
        std::move(request), [this, cycle = std::weak_ptr(cycle_)](const URLResult& result) {
            if (!cycle.expired() && (state_ == State::Checking || cycle_->isUnseen)) {
                receiveFeed(result);
            }
        });
}

void AppcastUpdater::receiveFeed(const URLResult& result) {
    cycle_->task.reset();
    std::optional<UpdateOffer> found;
    try {
        const auto items = parseAppcast(checkedReply(result, Resource::Feed).body);
        // Who asks for updates wants to know of a skipped one, too.
        found = newestUpdate(
            items,
            {cycle_->offer ? cycle_->offer->version : copy_.version,
             cycle_->isUserInitiated ? std::nullopt : skipped_,
             copy_.architecture,
             std::string(copy_.installation.type()),
             copy_.systemVersion});
    } catch (const UpdateError& error) {
        if (cycle_->isUnseen) {
            // What is shown is none the worse for it.
            log(LogLevel::Default, error.what());
            scheduleCheck(retryInterval);
        } else {
            refuse(error.what());
        }
        return;
    }
    lastCheck_ = clock_.now();
    save([date = *lastCheck_](tavrin::UserDefaults& defaults) {
        defaults.setDate(lastCheckKey, date);
    });
    const std::weak_ptr cycle = cycle_;
    observer_->checkFinished();
    if (cycle.expired() || (state_ != State::Checking && !cycle_->isUnseen)) {
        return;
    }
    if (found) {
        cycle_->offer = std::move(found);
        show();
    } else if (cycle_->isUnseen) {
        scheduleNextCheck();
    } else {
        const bool isUserInitiated = cycle_->isUserInitiated;
        UpdatePresenter& presenter = *presenter_;
        endCycle();
        if (isUserInitiated) {
            presenter.show(UpdatePresenter::NoUpdate());
        }
    }
}

void AppcastUpdater::show() {
    state_ = State::Showing;
    log(LogLevel::Default, fmt::format("Version {} is available.", cycle_->offer->update.version));
    // Both may lead to anything.
    const std::shared_ptr<Cycle> cycle = cycle_;
    const bool isGentle = !cycle->isUserInitiated && observer_->wantsGentleOffers();
    cycle->isUnseen = isGentle;
    if (isGentle) {
        scheduleNextCheck();
    }
    observer_->updateWillBeOffered(cycle->offer->update, cycle->isUserInitiated);
    if (cycle == cycle_) {
        presenter_->show(UpdatePresenter::Offer{cycle->offer->update, isGentle});
    }
}

void AppcastUpdater::noteUserAttention() {
    if (!cycle_ || !cycle_->offer) {
        return;
    }
    if (std::exchange(cycle_->isUnseen, false)) {
        timer_.reset();
        if (cycle_->task) {
            cycle_->task->cancel();
        }
    }
    observer_->updateWasSeen(cycle_->offer->update);
}

void AppcastUpdater::choose(Choice choice) {
    if (choice == Choice::Cancel) {
        cancel();
        return;
    }
    if (state_ != State::Showing && state_ != State::Ready) {
        return;
    }
    const State asked = state_;
    noteUserAttention();
    if (state_ != asked) {
        return;
    }
    switch (choice) {
    case Choice::Install:
        if (asked == State::Showing) {
            download();
        } else {
            install();
        }
        return;
    case Choice::Skip:
        skipped_ = cycle_->offer->version;
        saveChoice([version = skipped_->text()](tavrin::UserDefaults& defaults) {
            defaults.setString(skippedKey, version);
        });
        break;
    case Choice::Later:
    case Choice::Cancel:
        break;
    }
    endCycle();
}

void AppcastUpdater::download() {
    state_ = State::Downloading;
    const UpdateOffer& offer = *cycle_->offer;
    cycle_->place = copy_.installation.place(offer.version.text());
    cycle_->download = std::make_shared<Download>();
    const bool isPackage = copy_.installation.kind() == UpdateInstallation::Kind::Package;
    work(
        [download = cycle_->download,
         place = cycle_->place,
         length = offer.update.length,
         isPackage] {
            if (isPackage) {
                makeFolder(place.parent_path());
            }
            download->file.emplace(place, length);
        },
        &AppcastUpdater::loadUpdate);
    showProgress();
}

void AppcastUpdater::loadUpdate() {
    URLRequest request;
    request.url = cycle_->offer->url;
    request.timeout = downloadTimeout;
    // Weak, so that a session which keeps the request does not keep the file.
    request.receiver = [download = std::weak_ptr(cycle_->download)](std::string_view piece) {
        const std::shared_ptr<Download> target = download.lock();
        return target && target->receive(piece);
    };
    cycle_->task = session_.start(
        std::move(request), [this, cycle = std::weak_ptr(cycle_)](const URLResult& result) {
            if (!cycle.expired()) {
                receiveUpdate(result);
            }
        });
}

void AppcastUpdater::showProgress() {
    timer_ = clock_.schedule(progressInterval, [this] { showProgress(); });
    presenter_->show(
        UpdatePresenter::Download{cycle_->download->received, cycle_->offer->update.length});
}

void AppcastUpdater::receiveUpdate(const URLResult& result) {
    timer_.reset();
    cycle_->task.reset();
    try {
        if (cycle_->download->failure) {
            std::rethrow_exception(cycle_->download->failure);
        }
        static_cast<void>(checkedReply(result, Resource::Update));
    } catch (const std::exception& error) {
        refuse(error.what());
        return;
    }
    verify();
}

void AppcastUpdater::verify() {
    state_ = State::Verifying;
    work(
        [download = cycle_->download, key = *key_, signature = cycle_->offer->signature] {
            download->file->verify(key, signature);
        },
        &AppcastUpdater::showReady);
    presenter_->show(UpdatePresenter::Verification());
}

void AppcastUpdater::showReady() {
    state_ = State::Ready;
    presenter_->show(UpdatePresenter::ReadyToInstall{cycle_->offer->update});
}

void AppcastUpdater::install() {
    state_ = State::Installing;
    const auto use = copy_.installation.kind() == UpdateInstallation::Kind::AppImage
                         ? StagedUpdate::Use::Program
                         : StagedUpdate::Use::Document;
    work(
        [download = cycle_->download, use] { download->file->putInPlace(use); },
        &AppcastUpdater::finishInstalling);
}

void AppcastUpdater::finishInstalling() {
    const std::shared_ptr<Cycle> cycle = cycle_;
    UpdatePresenter& presenter = *presenter_;
    const bool isPackage = copy_.installation.kind() == UpdateInstallation::Kind::Package;
    log(LogLevel::Default,
        fmt::format(
            "Version {} was verified and {}.",
            cycle->offer->update.version,
            isPackage ? "stored as a package" : "installed"));
    if (!isPackage) {
        // Nothing may go back behind what is on the disk, even before it is started.
        copy_.version = cycle->offer->version;
    }
    endCycle();
    if (isPackage) {
        presenter.revealPackage(cycle->place.string());
    } else {
        presenter.relaunch();
    }
}

void AppcastUpdater::cancel() {
    if (state_ == State::Checking || state_ == State::Downloading) {
        if (cycle_->task) {
            cycle_->task->cancel();
        }
        endCycle();
        // Not at once the very check that nobody wanted to wait for.
        scheduleCheck(retryInterval);
    }
}

void AppcastUpdater::endCycle() {
    dropCycle();
    state_ = State::Idle;
    scheduleNextCheck();
}

void AppcastUpdater::dropCycle() {
    if (cycle_ && cycle_->download) {
        // To give back the room of a large file takes a while.
        worker_->start([download = std::move(cycle_->download)]() mutable { download.reset(); });
    }
    cycle_.reset();
}

void AppcastUpdater::refuse(const std::string& sentence) {
    const bool isCheck = state_ == State::Checking;
    const bool isShown = !isCheck || cycle_->isUserInitiated;
    UpdatePresenter& presenter = *presenter_;
    log(isCheck ? LogLevel::Default : LogLevel::Error, sentence);
    endCycle();
    if (isCheck) {
        scheduleCheck(retryInterval);
    }
    if (isShown) {
        presenter.show(UpdatePresenter::Refusal{sentence});
    }
}

void AppcastUpdater::work(std::function<void()> job, void (AppcastUpdater::*then)()) {
    worker_->start([this, job = std::move(job), then, cycle = std::weak_ptr(cycle_)] {
        std::optional<std::string> failure;
        try {
            job();
        } catch (const std::exception& error) {
            failure = error.what();
        }
        QMetaObject::invokeMethod(
            callbackContext_.get(),
            [this, then, cycle, failure = std::move(failure)] {
                if (cycle.expired()) {
                    return;
                }
                if (failure) {
                    refuse(*failure);
                } else {
                    (this->*then)();
                }
            },
            Qt::QueuedConnection);
    });
}

void AppcastUpdater::save(Change change) {
    saver_->start([this, change = std::move(change)] { make(change); });
}

void AppcastUpdater::saveChoice(Change change) {
    saver_->start([this, change = std::move(change)] {
        QMetaObject::invokeMethod(
            callbackContext_.get(),
            [this, failure = make(change)] {
                if (observer_ != nullptr) {
                    observer_->choiceSaved(failure);
                }
            },
            Qt::QueuedConnection);
    });
}

std::optional<std::string> AppcastUpdater::make(const Change& change) const {
    try {
        change(defaults_);
        return std::nullopt;
    } catch (const tavrin::PlatformError& error) {
        log(LogLevel::Error, error.what());
        return error.what();
    }
}

void AppcastUpdater::log(LogLevel level, std::string_view message) const {
    logStore_.write(level, "update", message);
}

} // namespace orvel
