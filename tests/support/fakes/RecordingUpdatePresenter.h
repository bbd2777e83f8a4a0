// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/UpdatePresenter.h"

#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace orvel::test {

/// Records all stages as text. The test can answer immediately.
class RecordingUpdatePresenter final : public UpdatePresenter {
public:
    /// Called when an update is offered.
    std::function<void()> onOffer;
    std::function<void()> onReadyToInstall;

    /// Everything shown so far, in order; a download in progress is one entry.
    [[nodiscard]] const std::vector<std::string>& shown() const { return shown_; }
    [[nodiscard]] const std::vector<SoftwareUpdate>& updates() const { return updates_; }
    /// The last progress shown.
    [[nodiscard]] const Download& download() const { return download_; }

    void clear() {
        shown_.clear();
        updates_.clear();
    }

    void show(const Stage& stage) override {
        std::visit([this](const auto& each) { record(each); }, stage);
    }
    void showInFocus() override { shown_.emplace_back("in focus"); }
    void revealPackage(const std::string& path) override { shown_.push_back("reveal " + path); }
    void relaunch() override { shown_.emplace_back("relaunch"); }

private:
    void record(const Checking&) { shown_.emplace_back("checking"); }
    void record(const NoUpdate&) { shown_.emplace_back("no update"); }
    void record(const Offer& offer) {
        shown_.push_back(
            "update " + offer.update.version + (offer.isGentle ? " gently" : " in focus"));
        updates_.push_back(offer.update);
        call(onOffer);
    }
    void record(const Download& download) {
        if (shown_.empty() || shown_.back() != "download") {
            shown_.emplace_back("download");
        }
        download_ = download;
    }
    void record(const Verification&) { shown_.emplace_back("verification"); }
    void record(const ReadyToInstall& ready) {
        shown_.push_back("ready " + ready.update.version);
        call(onReadyToInstall);
    }
    void record(const Refusal& refusal) { shown_.push_back(refusal.sentence); }

    static void call(const std::function<void()>& function) {
        if (function) {
            function();
        }
    }

    std::vector<std::string> shown_;
    std::vector<SoftwareUpdate> updates_;
    Download download_;
};

} // namespace orvel::test
