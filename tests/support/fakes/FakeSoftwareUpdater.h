// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdater.h"

#include <optional>
#include <string>
#include <utility>

namespace orvel::test {

/// An updater whose feed the test fills, and whose day passes when the test says so. It finds,
/// shows and forgets updates like a real one, but installs nothing.
class FakeSoftwareUpdater final : public SoftwareUpdater {
public:
    /// What the feed offers from now on.
    void setOffer(std::optional<SoftwareUpdate> offer) { offer_ = std::move(offer); }
    /// The time of all checks from now on.
    void setTime(tavrin::Date time) { time_ = time; }

    /// Why no choice can be saved from now on, or that it can.
    void setSaveFailure(std::optional<std::string> failure) { saveFailure_ = std::move(failure); }

    /// A scheduled check becomes due.
    void passADay() {
        if (delegate_ != nullptr && isAutomatic_ && (!shown_ || isUnseen_)) {
            check(false);
        }
    }

    /// What the running updater was started with; none when it is stopped.
    [[nodiscard]] const std::optional<Feed>& feed() const { return feed_; }
    /// The checks that users asked for.
    [[nodiscard]] int requestedCheckCount() const { return requestedCheckCount_; }
    [[nodiscard]] const std::optional<Choice>& lastChoice() const { return lastChoice_; }

    void start(Feed feed, Delegate& delegate, UserDriver& userDriver) override {
        feed_ = std::move(feed);
        delegate_ = &delegate;
        userDriver_ = &userDriver;
    }
    void stop() override {
        feed_.reset();
        shown_.reset();
        delegate_ = nullptr;
        userDriver_ = nullptr;
    }

    void checkForUpdates() override {
        ++requestedCheckCount_;
        if (shown_) {
            userDriver_->showUpdateInFocus();
            noteUserAttention();
        } else {
            userDriver_->showChecking();
            check(true);
        }
    }

    [[nodiscard]] bool automaticallyChecksForUpdates() const override { return isAutomatic_; }
    void setAutomaticallyChecksForUpdates(bool isAutomatic) override {
        isAutomatic_ = isAutomatic;
        tellOfSaving();
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
                tellOfSaving();
            }
            delegate_->standardUserDriverDidReceiveUserAttention(update);
        }
    }
    void noteUserAttention() override {
        if (shown_) {
            isUnseen_ = false;
            delegate_->standardUserDriverDidReceiveUserAttention(*shown_);
        }
    }
    void cancel() override { choose(Choice::Later); }

private:
    void tellOfSaving() {
        if (delegate_ != nullptr) {
            delegate_->updaterDidSaveChoice(saveFailure_);
        }
    }

    void check(bool isUserInitiated) {
        lastCheck_ = time_;
        delegate_->updaterDidFinishUpdateCheck();
        if (offer_ && offer_ != shown_ && (isUserInitiated || offer_->version != skipped_)) {
            shown_ = offer_;
            isUnseen_ = !isUserInitiated && delegate_->supportsGentleScheduledUpdateReminders();
            const Showing showing = isUnseen_ ? Showing::Gently : Showing::InFocus;
            delegate_->standardUserDriverWillHandleShowingUpdate(*shown_, isUserInitiated);
            userDriver_->showUpdate(*shown_, showing);
        } else if (isUserInitiated) {
            userDriver_->showNoUpdate();
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
    Delegate* delegate_ = nullptr;
    UserDriver* userDriver_ = nullptr;
};

} // namespace orvel::test
