// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/SoftwareUpdater.h"
#include "platform/URLSession.h"
#include "platform/linux/update/UpdateInstallation.h"
#include "platform/linux/update/UpdateKey.h"
#include "platform/linux/update/UpdateVersion.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class QObject;
class QThreadPool;

namespace tavrin {
class UserDefaults;
}

namespace orvel {

/// Updates from a feed of signed downloads, an appcast.
///
/// The feed and the downloads come over HTTPS, without redirects. A download lies hidden beside the
/// file whose place it is to take; only once its length and its signature are right is it put
/// there, and it is the verified file itself, by its descriptor, that is. The signature is on the
/// file, not on the version in the feed: whoever can forge the feed, but does not have the key,
/// could still pass an older signed file off as a newer one.
///
/// A check that fails on schedule is logged and tried again in an hour. Main thread; what works on
/// the download's file, and saving settings, happen on threads of their own, which the destructor
/// waits for. Everything it is given is borrowed.
class AppcastUpdater final : public SoftwareUpdater {
public:
    static constexpr tavrin::Seconds checkInterval{86'400};
    static constexpr tavrin::Seconds retryInterval{3'600};
    /// How often a download is shown.
    static constexpr tavrin::Seconds progressInterval{0.2};

    static constexpr std::string_view automaticKey = "SUEnableAutomaticChecks";
    static constexpr std::string_view lastCheckKey = "SULastCheckTime";
    static constexpr std::string_view skippedKey = "SUSkippedVersion";

    /// This copy of the application.
    struct Copy {
        UpdateVersion version;
        UpdateInstallation installation;
        std::string architecture;
        UpdateVersion systemVersion;
    };

    /// This process, of that version. A version that cannot be compared counts as the oldest.
    [[nodiscard]] static Copy
    thisCopy(std::string_view version, std::filesystem::path packageFolder);

    AppcastUpdater(
        URLSession& session,
        Clock& clock,
        tavrin::UserDefaults& defaults,
        LogStore& logStore,
        Copy copy);
    ~AppcastUpdater() override;

    void start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) override;
    void stop() override;
    void checkForUpdates() override;
    void choose(Choice choice) override;
    void noteUserAttention() override;
    [[nodiscard]] bool automaticallyChecksForUpdates() const override { return isAutomatic_; }
    void setAutomaticallyChecksForUpdates(bool isAutomatic) override;
    [[nodiscard]] std::optional<tavrin::Date> lastUpdateCheckDate() const override {
        return lastCheck_;
    }

private:
    enum class State {
        Stopped,
        Idle,
        Checking,
        Showing,
        Downloading,
        Verifying,
        Ready,
        Installing
    };

    struct Download;
    /// From the start of a check to the end of what it led to. What arrives later finds it gone.
    struct Cycle;

    void scheduleCheck(tavrin::Seconds delay);
    void scheduleNextCheck();
    void checkOnSchedule();
    void check(bool isUserInitiated);
    void loadFeed();
    void receiveFeed(const URLResult& result);
    void show();
    void download();
    void loadUpdate();
    void showProgress();
    void receiveUpdate(const URLResult& result);
    void verify();
    void showReady();
    void install();
    void finishInstalling();
    /// Back to waiting for the next check.
    void endCycle();
    void dropCycle();
    void refuse(const std::string& sentence);
    void cancel();

    /// Runs the work on a thread, and then, unless the cycle has ended, the rest on this one, or
    /// refuses with what the work threw.
    void work(std::function<void()> job, void (AppcastUpdater::*then)());
    using Change = std::function<void(tavrin::UserDefaults&)>;
    void save(Change change);
    /// And tells the observer how that went.
    void saveChoice(Change change);
    /// Why it could not be made, if so.
    std::optional<std::string> make(const Change& change) const;
    void log(LogLevel level, std::string_view message) const;

    URLSession& session_;
    Clock& clock_;
    tavrin::UserDefaults& defaults_;
    LogStore& logStore_;
    Copy copy_;

    State state_ = State::Stopped;
    Feed feed_;
    std::optional<UpdateKey> key_;
    UpdateObserver* observer_ = nullptr;
    UpdatePresenter* presenter_ = nullptr;

    bool isAutomatic_ = true;
    std::optional<tavrin::Date> lastCheck_;
    std::optional<UpdateVersion> skipped_;

    std::shared_ptr<Cycle> cycle_;
    /// Of the next check, or of the progress.
    std::unique_ptr<Clock::Timer> timer_;
    /// Results come to it; with it they are dropped.
    std::unique_ptr<QObject> callbackContext_;
    // Of one thread each, because the last change of a setting has to stand. They end first, with
    // all their work.
    std::unique_ptr<QThreadPool> worker_;
    std::unique_ptr<QThreadPool> saver_;
};

} // namespace orvel
