// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/AppcastUpdater.h"

#include "platform/UpdateObserver.h"
#include "platform/UpdatePresenter.h"
#include "platform/linux/update/UpdateError.h"
#include "platform/linux/update/UpdateOffer.h"

#include <fmt/format.h>
#include <gnu/libc-version.h>
#include <sys/utsname.h>

#include <cassert>
#include <utility>

namespace orvel {

struct AppcastUpdater::Cycle {
    bool isUserInitiated = false;
    /// The offer is gentle and the user has not seen it, so a newer one may replace it.
    bool isUnseen = false;
    std::optional<UpdateOffer> offer;
};

AppcastUpdater::Agent
AppcastUpdater::thisAgent(std::string_view version, std::filesystem::path packageFolder) {
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
    Agent agent)
    : logStore_(logStore),
      agent_(std::move(agent)),
      schedule_(
          clock,
          defaults,
          logStore,
          [this] { checkOnSchedule(); },
          [this](const std::optional<std::string>& failure) {
              if (observer_ != nullptr) {
                  observer_->choiceSaved(failure);
              }
          }),
      feedReader_(session),
      downloader_(
          session,
          clock,
          agent_.installation,
          {[this] { offerInstallation(); },
           [this] { finishInstalling(); },
           [this](const std::string& sentence) {
               refuse(sentence);
           }}) {}

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
    schedule_.scheduleNext();
}

void AppcastUpdater::stop() {
    schedule_.stop();
    dropCycle();
    state_ = State::Stopped;
    observer_ = nullptr;
    presenter_ = nullptr;
}

void AppcastUpdater::setAutomaticallyChecksForUpdates(bool isAutomatic) {
    schedule_.setAutomatic(isAutomatic);
    if (state_ == State::Idle || (cycle_ && cycle_->isUnseen && !feedReader_.isReading())) {
        schedule_.scheduleNext();
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
    schedule_.stop();
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
    feedReader_.read(
        feed_.url,
        {cycle_->offer ? cycle_->offer->version : agent_.version,
         agent_.architecture,
         std::string(agent_.installation.type()),
         agent_.systemVersion},
        *key_,
        [this](const UpdateFeedReader::Result& result) { receiveFeed(result); });
}

void AppcastUpdater::receiveFeed(const UpdateFeedReader::Result& result) {
    if (const auto* failure = std::get_if<std::string>(&result)) {
        if (cycle_->isUnseen) {
            // The offer on display stays.
            log(LogLevel::Default, *failure);
            schedule_.scheduleRetry();
        } else {
            refuse(*failure);
        }
        return;
    }
    auto found = std::get<std::optional<UpdateOffer>>(result);
    schedule_.recordCheck();
    const std::weak_ptr cycle = cycle_;
    observer_->checkFinished();
    if (cycle.expired() || (state_ != State::Checking && !cycle_->isUnseen)) {
        return;
    }
    if (found && !isSkipped(*found)) {
        cycle_->offer = std::move(found);
        offer();
    } else if (cycle_->isUnseen) {
        schedule_.scheduleNext();
    } else {
        const bool isUserInitiated = cycle_->isUserInitiated;
        UpdatePresenter& presenter = *presenter_;
        endCycle();
        if (isUserInitiated) {
            presenter.show(UpdatePresenter::NoUpdate());
        }
    }
}

bool AppcastUpdater::isSkipped(const UpdateOffer& offer) const {
    // A user who asks is offered a skipped version too.
    return !cycle_->isUserInitiated && schedule_.skipped() && offer.version <= *schedule_.skipped();
}

void AppcastUpdater::offer() {
    state_ = State::Offering;
    log(LogLevel::Default, fmt::format("Version {} is available.", cycle_->offer->update.version));
    // The observer and the presenter may end the cycle.
    const std::shared_ptr<Cycle> cycle = cycle_;
    const bool isGentle = !cycle->isUserInitiated && observer_->wantsGentleOffers();
    cycle->isUnseen = isGentle;
    if (isGentle) {
        schedule_.scheduleNext();
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
        schedule_.stop();
        feedReader_.cancel();
    }
    observer_->updateWasSeen(cycle_->offer->update);
}

void AppcastUpdater::choose(Choice choice) {
    if (choice == Choice::Cancel) {
        cancel();
        return;
    }
    if (state_ != State::Offering && state_ != State::Ready) {
        return;
    }
    const State asked = state_;
    noteUserAttention();
    if (state_ != asked) {
        return;
    }
    const bool isOffer = state_ == State::Offering;
    if (choice == Choice::Install) {
        state_ = isOffer ? State::Downloading : State::Installing;
        if (isOffer) {
            downloader_.start(*cycle_->offer, *key_, *presenter_);
        } else {
            downloader_.install();
        }
        return;
    }
    if (choice == Choice::Skip) {
        schedule_.skip(cycle_->offer->version);
    }
    endCycle();
}

void AppcastUpdater::offerInstallation() {
    state_ = State::Ready;
    presenter_->show(UpdatePresenter::ReadyToInstall{cycle_->offer->update});
}

void AppcastUpdater::finishInstalling() {
    const std::shared_ptr<Cycle> cycle = cycle_;
    UpdatePresenter& presenter = *presenter_;
    const bool isPackage = agent_.installation.kind() == UpdateInstallation::Kind::Package;
    log(LogLevel::Default,
        fmt::format(
            "Version {} was verified and {}.",
            cycle->offer->update.version,
            isPackage ? "stored as a package" : "installed"));
    if (!isPackage) {
        // No older version may replace the installed one, even before it is started.
        agent_.version = cycle->offer->version;
    }
    endCycle();
    if (isPackage) {
        const auto place = agent_.installation.place(cycle->offer->version.text());
        presenter.revealPackage(place.string());
    } else {
        presenter.relaunch();
    }
}

void AppcastUpdater::cancel() {
    if (state_ == State::Checking || downloader_.isLoading()) {
        endCycle();
        // The user did not want to wait, so do not check again at once.
        schedule_.scheduleRetry();
    }
}

void AppcastUpdater::endCycle() {
    dropCycle();
    state_ = State::Idle;
    schedule_.scheduleNext();
}

void AppcastUpdater::dropCycle() {
    feedReader_.cancel();
    downloader_.cancel();
    cycle_.reset();
}

void AppcastUpdater::refuse(const std::string& sentence) {
    const bool isCheck = state_ == State::Checking;
    const bool isShown = !isCheck || cycle_->isUserInitiated;
    UpdatePresenter& presenter = *presenter_;
    log(isCheck ? LogLevel::Default : LogLevel::Error, sentence);
    endCycle();
    if (isCheck) {
        schedule_.scheduleRetry();
    }
    if (isShown) {
        presenter.show(UpdatePresenter::Refusal{sentence});
    }
}

void AppcastUpdater::log(LogLevel level, std::string_view message) const {
    logStore_.write(level, "update", message);
}

} // namespace orvel
