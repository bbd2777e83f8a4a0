// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdater.h"

#include <functional>
#include <string>
#include <vector>

namespace orvel::test {

/// Keeps what the user is shown of updates, in words, and lets the test answer at once.
class RecordingUserDriver final : public SoftwareUpdater::UserDriver {
public:
    /// Called when there is something to choose.
    std::function<void()> onUpdate;
    std::function<void()> onReadyToInstall;
    /// Called for every piece that has arrived.
    std::function<void()> onDownload;

    /// Everything shown so far, in order; a download in progress is one entry.
    [[nodiscard]] const std::vector<std::string>& shown() const { return shown_; }
    [[nodiscard]] const std::vector<SoftwareUpdate>& updates() const { return updates_; }
    /// How much of the download had arrived when it was last shown, and of how much.
    [[nodiscard]] std::uint64_t received() const { return received_; }
    [[nodiscard]] std::uint64_t expected() const { return expected_; }

    void clear() {
        shown_.clear();
        updates_.clear();
    }

    void showChecking() override { shown_.emplace_back("checking"); }
    void showNoUpdate() override { shown_.emplace_back("no update"); }
    void showUpdate(const SoftwareUpdate& update, SoftwareUpdater::Showing showing) override {
        shown_.push_back(
            "update " + update.version +
            (showing == SoftwareUpdater::Showing::Gently ? " gently" : " in focus"));
        updates_.push_back(update);
        call(onUpdate);
    }
    void showUpdateInFocus() override { shown_.emplace_back("in focus"); }
    void showDownload(std::uint64_t received, std::uint64_t expected) override {
        if (shown_.empty() || shown_.back() != "download") {
            shown_.emplace_back("download");
        }
        received_ = received;
        expected_ = expected;
        call(onDownload);
    }
    void showVerification() override { shown_.emplace_back("verification"); }
    void showReadyToInstall(const SoftwareUpdate& update) override {
        shown_.push_back("ready " + update.version);
        call(onReadyToInstall);
    }
    void showRefusal(const std::string& sentence) override { shown_.push_back(sentence); }
    void revealPackage(const std::string& path) override { shown_.push_back("reveal " + path); }
    void relaunch() override { shown_.emplace_back("relaunch"); }

private:
    static void call(const std::function<void()>& function) {
        if (function) {
            function();
        }
    }

    std::vector<std::string> shown_;
    std::vector<SoftwareUpdate> updates_;
    std::uint64_t received_ = 0;
    std::uint64_t expected_ = 0;
};

} // namespace orvel::test
