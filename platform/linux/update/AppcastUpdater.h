// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/SoftwareUpdater.h"
#include "platform/URLSession.h"
#include "platform/linux/update/UpdateDownloader.h"
#include "platform/linux/update/UpdateFeedReader.h"
#include "platform/linux/update/UpdateInstallation.h"
#include "platform/linux/update/UpdateKey.h"
#include "platform/linux/update/UpdateSchedule.h"
#include "platform/linux/update/UpdateVersion.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {
class UserDefaults;
}

namespace orvel {

/// Updates from a feed of signed downloads, an appcast. The feed and the downloads come over HTTPS,
/// without redirects.
///
/// Only items that are signed with the feed's key are offered. A scheduled check that fails is
/// logged and retried. Main thread; the destructor waits for the threads that read the feed, work
/// on the download's file and save settings. Borrows everything it is given.
class AppcastUpdater final : public SoftwareUpdater {
public:
    /// The installed agent, which updates replace.
    struct Agent {
        UpdateVersion version;
        UpdateInstallation installation;
        std::string architecture;
        /// Of the C library.
        UpdateVersion systemVersion;
    };

    /// The agent that this process runs. A version that cannot be compared counts as the oldest.
    [[nodiscard]] static Agent
    thisAgent(std::string_view version, std::filesystem::path packageFolder);

    AppcastUpdater(
        URLSession& session,
        Clock& clock,
        tavrin::UserDefaults& defaults,
        LogStore& logStore,
        Agent agent);
    ~AppcastUpdater() override;

    void start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) override;
    void stop() override;
    void checkForUpdates() override;
    void choose(Choice choice) override;
    void noteUserAttention() override;
    [[nodiscard]] bool automaticallyChecksForUpdates() const override {
        return schedule_.isAutomatic();
    }
    void setAutomaticallyChecksForUpdates(bool isAutomatic) override;
    [[nodiscard]] std::optional<tavrin::Date> lastUpdateCheckDate() const override {
        return schedule_.lastCheck();
    }

private:
    enum class State { Stopped, Idle, Checking, Offering, Downloading, Ready, Installing };

    /// One check and what follows from it. Results that arrive after its end find it expired.
    struct Cycle;

    void checkOnSchedule();
    void check(bool isUserInitiated);
    void loadFeed();
    void receiveFeed(const UpdateFeedReader::Result& result);
    [[nodiscard]] bool isSkipped(const UpdateOffer& offer) const;
    void offer();
    void offerInstallation();
    void finishInstalling();
    void cancel();
    /// Back to waiting for the next check.
    void endCycle();
    void dropCycle();
    void refuse(const std::string& sentence);
    void log(LogLevel level, std::string_view message) const;

    LogStore& logStore_;
    Agent agent_;

    State state_ = State::Stopped;
    Feed feed_;
    std::optional<UpdateKey> key_;
    UpdateObserver* observer_ = nullptr;
    UpdatePresenter* presenter_ = nullptr;

    std::shared_ptr<Cycle> cycle_;
    UpdateSchedule schedule_;
    UpdateFeedReader feedReader_;
    UpdateDownloader downloader_;
};

} // namespace orvel
