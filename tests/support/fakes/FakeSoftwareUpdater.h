// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdater.h"
#include "platform/UpdateObserver.h"
#include "platform/UpdatePresenter.h"

#include <optional>
#include <string>
#include <utility>

namespace orvel::test {

/// An updater whose feed and clock the test controls. It finds, offers and drops updates like a
/// real one, but installs nothing.
class FakeSoftwareUpdater final : public SoftwareUpdater {
public:
    /// The update in the feed.
    void setOffer(std::optional<SoftwareUpdate> offer) { offer_ = std::move(offer); }
    /// The time of later checks.
    void setTime(tavrin::Date time) { time_ = time; }

    /// The error of later saves; no value makes them succeed.
    void setSaveFailure(std::optional<std::string> failure) { saveFailure_ = std::move(failure); }

    /// A scheduled check becomes due.
    void passADay() {
        if (observer_ != nullptr && isAutomatic_ && (!shown_ || isUnseen_)) {
            check(false);
        }
    }

    /// The feed of the running updater; no value while stopped.
    [[nodiscard]] const std::optional<Feed>& feed() const { return feed_; }
    /// The checks that users asked for.
    [[nodiscard]] int requestedCheckCount() const { return requestedCheckCount_; }
    [[nodiscard]] const std::optional<Choice>& lastChoice() const { return lastChoice_; }

    void start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) override {
        feed_ = std::move(feed);
        observer_ = &observer;
        presenter_ = &presenter;
    }
    void stop() override {
        feed_.reset();
        shown_.reset();
        observer_ = nullptr;
        presenter_ = nullptr;
    }

    void checkForUpdates() override {
        ++requestedCheckCount_;
        if (shown_) {
            presenter_->showInFocus();
            noteUserAttention();
        } else {
            presenter_->show(UpdatePresenter::Checking());
            check(true);
        }
    }

    [[nodiscard]] bool automaticallyChecksForUpdates() const override { return isAutomatic_; }
    void setAutomaticallyChecksForUpdates(bool isAutomatic) override {
        isAutomatic_ = isAutomatic;
        notifyChoiceSaved();
    }
    [[nodiscard]] std::optional<tavrin::Date> lastUpdateCheckDate() const override {
        return lastCheck_;
    }

    void choose(Choice choice) override {
        if (shown_) {
            lastChoice_ = choice;
            const SoftwareUpdate update = *std::exchange(shown_, std::nullopt);
            if (choice == Choice::Skip) {
                skipped_ = update.version;
                notifyChoiceSaved();
            }
            observer_->updateWasSeen(update);
        }
    }
    void noteUserAttention() override {
        if (shown_) {
            isUnseen_ = false;
            observer_->updateWasSeen(*shown_);
        }
    }

private:
    void notifyChoiceSaved() {
        if (observer_ != nullptr) {
            observer_->choiceSaved(saveFailure_);
        }
    }

    void check(bool isUserInitiated) {
        lastCheck_ = time_;
        observer_->checkFinished();
        if (offer_ && offer_ != shown_ && (isUserInitiated || offer_->version != skipped_)) {
            shown_ = offer_;
            isUnseen_ = !isUserInitiated && observer_->wantsGentleOffers();
            observer_->updateWillBeOffered(*shown_, isUserInitiated);
            presenter_->show(UpdatePresenter::Offer{*shown_, isUnseen_});
        } else if (isUserInitiated) {
            presenter_->show(UpdatePresenter::NoUpdate());
        }
    }

    std::optional<SoftwareUpdate> offer_;
    tavrin::Date time_;
    std::optional<SoftwareUpdate> shown_;
    bool isUnseen_ = false;
    std::optional<std::string> saveFailure_;
    std::string skipped_;
    std::optional<tavrin::Date> lastCheck_;
    bool isAutomatic_ = true;
    int requestedCheckCount_ = 0;
    std::optional<Choice> lastChoice_;
    std::optional<Feed> feed_;
    UpdateObserver* observer_ = nullptr;
    UpdatePresenter* presenter_ = nullptr;
};

} // namespace orvel::test
