// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/AppcastUpdater.h"

#include "core/Errors.h"
#include "platform/linux/network/CurlURLSession.h"
#include "platform/linux/update/Appcast.h"
#include "tests/support/AppcastBuilder.h"
#include "tests/support/LocalServer.h"
#include "tests/support/RunTask.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UpdateSigner.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/fakes/RecordingUpdateObserver.h"
#include "tests/support/fakes/RecordingUpdatePresenter.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Choice = SoftwareUpdater::Choice;
using Connection = LocalServer::Connection;
using tavrin::Seconds;
using tavrin::URLErrorCode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Seconds day = UpdateSchedule::checkInterval;
constexpr Seconds hour = UpdateSchedule::retryInterval;

std::string content(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Runs the event loop until that holds; gives false when it never does.
bool runUntil(const std::function<bool()>& holds) {
    bool isLate = false;
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, &limit, [&isLate] { isLate = true; });
    limit.start(std::chrono::seconds(60));
    while (!holds() && !isLate) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return holds();
}

/// An AppImage of version 1.0 that looks for updates.
class AppcastUpdaterTest : public testing::Test {
protected:
    AppcastUpdaterTest() {
        std::filesystem::create_directories(folder_ / "mounted");
        std::filesystem::create_directories(place_.parent_path());
        std::ofstream(place_) << "old";
        chmod(place_.c_str(), 0755);
    }

    ~AppcastUpdaterTest() override { EXPECT_THAT(leftovers(), IsEmpty()); }

    [[nodiscard]] AppcastUpdater::Agent agent() const {
        const ProgramTraces traces{
            isPackage_ ? "/usr/bin/orvel-agent" : folder_ / "mounted" / "agent",
            place_,
            folder_ / "mounted"};
        return {
            *UpdateVersion::parse("1.0"),
            UpdateInstallation(traces, folder_ / "Downloads"),
            "x86_64",
            *UpdateVersion::parse("2.36")};
    }

    AppcastUpdater& updater() {
        if (!updater_) {
            updater_ =
                std::make_unique<AppcastUpdater>(*session(), clock_, defaults_, logStore_, agent());
            updater_->start({feedURL(), key_}, observer_, presenter_);
        }
        return *updater_;
    }

    virtual URLSession* session() = 0;
    [[nodiscard]] virtual std::string feedURL() const = 0;

    /// An item whose download is at that path.
    [[nodiscard]] AppcastBuilder::Item
    item(const std::string& version, const std::string& update = "new") const {
        return {version, updateURL(), update.size(), signer_.signature(update)};
    }
    [[nodiscard]] virtual std::string updateURL() const = 0;

    bool shows(const std::string& last) {
        return runUntil(
            [&] { return !presenter_.shown().empty() && presenter_.shown().back() == last; });
    }

    /// What lies beside the installed file.
    [[nodiscard]] std::vector<std::string> leftovers() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(place_.parent_path())) {
            if (entry.path() != place_) {
                names.push_back(entry.path().filename());
            }
        }
        return names;
    }

    [[nodiscard]] std::vector<std::string> logged() const {
        std::vector<std::string> messages;
        for (const auto& line : logStore_.lines()) {
            EXPECT_EQ(line.category, "update");
            messages.push_back(line.message);
        }
        return messages;
    }

    TemporaryDirectory folder_;
    std::filesystem::path place_ = folder_ / "apps" / "Agent.AppImage";
    UpdateSigner signer_;
    std::string key_ = signer_.publicKey();
    bool isPackage_ = false;
    ManualClock clock_;
    InMemoryUserDefaults defaults_;
    RecordingLogStore logStore_;
    RecordingUpdateObserver observer_;
    RecordingUpdatePresenter presenter_;
    std::unique_ptr<AppcastUpdater> updater_;
};

/// Against a network of the test's making.
class AppcastUpdaterScheduleTest : public AppcastUpdaterTest {
protected:
    AppcastUpdaterScheduleTest() {
        session_.setHandler([this](const URLRequest& request) -> FakeURLSession::Answer {
            const auto found = pages_.find(request.url);
            return found == pages_.end() ? URLResponse{404, ""} : URLResponse{200, found->second};
        });
        offer({});
        pages_[updateURL()] = "new";
    }
    ~AppcastUpdaterScheduleTest() override { updater_.reset(); }

    URLSession* session() override { return &session_; }
    [[nodiscard]] std::string feedURL() const override { return "https://h/feed.xml"; }
    [[nodiscard]] std::string updateURL() const override { return "https://h/update"; }

    void offer(const std::vector<AppcastBuilder::Item>& items) {
        AppcastBuilder feed;
        for (const auto& each : items) {
            feed.add(each);
        }
        pages_[feedURL()] = feed.text();
    }

    void pass(Seconds time) {
        clock_.advance(time);
        processEvents();
    }

    [[nodiscard]] std::size_t requests() const { return session_.requests().size(); }

    FakeURLSession session_;
    std::map<std::string, std::string> pages_;
};

} // namespace

TEST_F(AppcastUpdaterScheduleTest, ChecksAtTheFirstStartAndThenDaily) {
    updater();
    EXPECT_EQ(requests(), 0U);
    pass(Seconds(0));
    EXPECT_EQ(requests(), 1U);
    pass(day - Seconds(1));
    EXPECT_EQ(requests(), 1U);
    pass(Seconds(1));
    EXPECT_EQ(requests(), 2U);
    pass(10 * day);
    EXPECT_EQ(requests(), 3U);
    pass(day);
    EXPECT_EQ(requests(), 4U);
    EXPECT_THAT(presenter_.shown(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AppcastUpdaterScheduleTest, TheDayGoesOnAcrossLaunches) {
    updater();
    pass(Seconds(0));
    EXPECT_EQ(updater().lastUpdateCheckDate(), clock_.now());
    updater_.reset();
    pass(day / 2);
    EXPECT_EQ(updater().lastUpdateCheckDate(), clock_.now() - day / 2);
    pass(day / 2 - Seconds(1));
    EXPECT_EQ(requests(), 1U);
    pass(Seconds(1));
    EXPECT_EQ(requests(), 2U);
}

TEST_F(AppcastUpdaterScheduleTest, ALastCheckInTheFutureDelaysByADayAtMost) {
    defaults_.setDate(UpdateSchedule::lastCheckKey, clock_.now() + 1000 * day);
    updater();
    EXPECT_EQ(clock_.untilNextTimer(), day);
}

TEST_F(AppcastUpdaterScheduleTest, AFailedCheckIsTriedAgainInAnHour) {
    pages_.erase(feedURL());
    updater();
    pass(Seconds(0));
    EXPECT_EQ(updater().lastUpdateCheckDate(), std::nullopt);
    EXPECT_EQ(clock_.untilNextTimer(), hour);
    pass(hour);
    EXPECT_EQ(requests(), 2U);
    offer({});
    pass(hour);
    EXPECT_EQ(requests(), 3U);
    EXPECT_EQ(clock_.untilNextTimer(), day);
    EXPECT_THAT(presenter_.shown(), IsEmpty());
    EXPECT_THAT(
        logged(),
        testing::Each("The update feed could not be loaded: the server answered with status 404."));
}

TEST_F(AppcastUpdaterScheduleTest, AutomaticChecksCanBeSwitchedOffForGood) {
    updater();
    EXPECT_TRUE(updater().automaticallyChecksForUpdates());
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_FALSE(updater().automaticallyChecksForUpdates());
    pass(3 * day);
    updater_.reset();
    EXPECT_EQ(defaults_.boolean(UpdateSchedule::automaticKey), false);
    EXPECT_FALSE(updater().automaticallyChecksForUpdates());
    pass(3 * day);
    EXPECT_EQ(requests(), 0U);
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);

    updater().setAutomaticallyChecksForUpdates(true);
    pass(Seconds(0));
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterScheduleTest, WhoAsksGetsACheckAlsoWithoutAutomaticOnes) {
    updater().setAutomaticallyChecksForUpdates(false);
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "no update"));
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);
}

TEST_F(AppcastUpdaterScheduleTest, ASwitchThatCannotBeSavedHoldsForThisLaunch) {
    defaults_.setFailsWrites(true);
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_FALSE(updater().automaticallyChecksForUpdates());
    updater_.reset();
    EXPECT_THAT(logged(), ElementsAre(testing::StartsWith("Could not write the settings")));
}

TEST_F(AppcastUpdaterScheduleTest, ChoicesAreSavedInTheirOrderWithoutWaitingForTheDisk) {
    std::counting_semaphore<> disk(0);
    defaults_.setOnWrite([&disk] { disk.acquire(); });
    updater().setAutomaticallyChecksForUpdates(false);
    updater().setAutomaticallyChecksForUpdates(true);
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_THAT(observer_.saved, IsEmpty());
    EXPECT_FALSE(defaults_.contains(UpdateSchedule::automaticKey));
    std::vector<bool> written;
    for (std::size_t count = 1; count <= 3; ++count) {
        disk.release();
        ASSERT_TRUE(runUntil([&] { return observer_.saved.size() == count; }));
        written.push_back(*defaults_.boolean(UpdateSchedule::automaticKey));
    }
    EXPECT_THAT(written, ElementsAre(false, true, false));
}

TEST_F(AppcastUpdaterScheduleTest, AScheduledFindIsShownGently) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently"));
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 on schedule"));
    updater().checkForUpdates();
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "in focus"));
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 on schedule", "2.0 seen"));
    pass(3 * day);
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterScheduleTest, AFindThatNobodyLooksAtGivesWayToANewerOne) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_EQ(clock_.untilNextTimer(), day);
    pages_.erase(feedURL());
    pass(day);
    EXPECT_EQ(clock_.untilNextTimer(), hour);
    offer({item("1.5")});
    pass(hour);
    offer({item("2.0")});
    pass(day);
    EXPECT_EQ(updater().lastUpdateCheckDate(), clock_.now());
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently"));

    offer({item("2.0"), item("2.1")});
    pass(day);
    EXPECT_EQ(requests(), 5U);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "update 2.1 gently"));
    EXPECT_THAT(
        observer_.told,
        ElementsAre(
            "checked", "2.0 on schedule", "checked", "checked", "checked", "2.1 on schedule"));
    updater().choose(Choice::Install);
    EXPECT_TRUE(shows("ready 2.1"));
}

TEST_F(AppcastUpdaterScheduleTest, WhatANewerCheckFindsComesTooLateForWhoHasLooked) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    offer({item("2.1")});
    clock_.advance(day);
    updater().checkForUpdates();
    processEvents();
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "in focus"));
    EXPECT_EQ(session_.inFlight(), 0U);
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);
}

TEST_F(AppcastUpdaterScheduleTest, WhileAFindIsShownGentlyChecksCanBeSwitchedOff) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);
    updater().setAutomaticallyChecksForUpdates(true);
    EXPECT_EQ(clock_.untilNextTimer(), day);
}

TEST_F(AppcastUpdaterScheduleTest, WithoutGentleRemindersAScheduledFindIsInFocus) {
    observer_.isGentle = false;
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 in focus"));
}

TEST_F(AppcastUpdaterScheduleTest, AFindThatWasAskedForIsInFocus) {
    offer({item("2.0").withElement("description", "Better.")});
    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 in focus"));
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 asked for"));
    EXPECT_THAT(presenter_.updates(), ElementsAre(SoftwareUpdate{"2.0", "2.0", "Better.", 3}));
}

TEST_F(AppcastUpdaterScheduleTest, AskingDuringAScheduledCheckMakesItOnesOwn) {
    updater();
    clock_.advance(Seconds(0));
    updater().checkForUpdates();
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "in focus", "no update"));
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterScheduleTest, LaterMeansTheNextDay) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    updater().choose(Choice::Later);
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 on schedule", "2.0 seen"));
    pass(day);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "update 2.0 gently"));
}

TEST_F(AppcastUpdaterScheduleTest, ASkippedVersionIsShownOnlyToWhoAsks) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    updater().choose(Choice::Skip);
    updater_.reset();
    EXPECT_EQ(defaults_.string(UpdateSchedule::skippedKey), "2.0");
    presenter_.clear();

    offer({item("2.0"), item("1.9")});
    updater();
    pass(day);
    EXPECT_EQ(requests(), 2U);
    EXPECT_THAT(presenter_.shown(), IsEmpty());

    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    updater().choose(Choice::Later);

    offer({item("2.0"), item("2.0.1")});
    pass(day);
    EXPECT_EQ(presenter_.shown().back(), "update 2.0.1 gently");
}

TEST_F(AppcastUpdaterScheduleTest, AReplayedOlderFeedIsNotFollowed) {
    for (const char* version : {"0.9", "1.0", "1.0.0", "1.0-rc1"}) {
        offer({item(version)});
        updater().checkForUpdates();
        EXPECT_TRUE(shows("no update")) << version;
        presenter_.clear();
    }
}

TEST_F(AppcastUpdaterScheduleTest, NothingGoesBackBehindWhatWasInstalledJustNow) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    presenter_.onReadyToInstall = presenter_.onOffer;
    updater().checkForUpdates();
    ASSERT_TRUE(shows("relaunch"));
    offer({item("1.5"), item("2.0")});
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
}

TEST_F(AppcastUpdaterScheduleTest, ACheckCanBeCancelled) {
    session_.enqueue(FakeURLSession::Answer());
    updater().checkForUpdates();
    updater().choose(Choice::Cancel);
    processEvents();
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking"));
    EXPECT_EQ(session_.inFlight(), 0U);
    EXPECT_EQ(clock_.untilNextTimer(), hour);
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
}

TEST_F(AppcastUpdaterScheduleTest, ACheckCanBeCancelledByWhomItTells) {
    offer({item("2.0")});
    observer_.onCheck = [this] {
        updater_->choose(Choice::Cancel);
    };
    updater().checkForUpdates();
    processEvents();
    EXPECT_THAT(observer_.told, ElementsAre("checked"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking"));
    EXPECT_EQ(clock_.untilNextTimer(), hour);
}

TEST_F(AppcastUpdaterScheduleTest, ADownloadCanBeCancelledBeforeItBegins) {
    offer({item("2.0")});
    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    updater().choose(Choice::Install);
    EXPECT_EQ(presenter_.shown().back(), "download");
    updater().choose(Choice::Cancel);
    updater_.reset();
    processEvents();
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterScheduleTest, ADownloadIsShownAndCanBeCancelled) {
    offer({item("2.0")});
    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    session_.enqueue(FakeURLSession::Answer());
    updater().choose(Choice::Install);
    EXPECT_EQ(presenter_.download().receivedBytes, 0U);
    EXPECT_EQ(presenter_.download().expectedBytes, 3U);
    ASSERT_TRUE(runUntil([this] { return requests() == 2; }));
    ASSERT_TRUE(session_.requests().back().receiver("ne"));
    pass(UpdateDownloader::progressInterval);
    EXPECT_EQ(presenter_.download().receivedBytes, 2U);
    updater().choose(Choice::Cancel);
    processEvents();
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 in focus", "download"));
    EXPECT_EQ(session_.inFlight(), 0U);
    EXPECT_EQ(content(place_), "old");
}

TEST_F(AppcastUpdaterScheduleTest, WhatIsReadyCanStillBePutOff) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    for (const Choice choice : {Choice::Later, Choice::Skip}) {
        updater().checkForUpdates();
        ASSERT_TRUE(shows("ready 2.0"));
        updater().choose(choice);
        EXPECT_EQ(content(place_), "old");
        EXPECT_TRUE(waitUntil([this] { return leftovers().empty(); }));
    }
}

TEST_F(AppcastUpdaterScheduleTest, AnAnswerThatNobodyAskedForDoesNothing) {
    updater().choose(Choice::Install);
    updater().noteUserAttention();
    updater().choose(Choice::Cancel);
    EXPECT_THAT(observer_.told, IsEmpty());
    EXPECT_THAT(presenter_.shown(), IsEmpty());
}

TEST_F(AppcastUpdaterScheduleTest, AfterStoppingNobodyIsCalled) {
    offer({item("2.0")});
    updater().checkForUpdates();
    updater().stop();
    processEvents();
    pass(3 * day);
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking"));
    EXPECT_THAT(observer_.told, IsEmpty());
    EXPECT_EQ(session_.inFlight(), 0U);

    updater().start({feedURL(), key_}, observer_, presenter_);
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 gently"));
}

TEST_F(AppcastUpdaterScheduleTest, ItCanBeStoppedByWhomItTells) {
    offer({item("2.0")});
    observer_.onCheck = [this] {
        updater_->stop();
    };
    updater();
    pass(Seconds(0));
    EXPECT_THAT(observer_.told, ElementsAre("checked"));
    EXPECT_THAT(presenter_.shown(), IsEmpty());
}

TEST_F(AppcastUpdaterScheduleTest, ItCanBeDestroyedAtAnyStep) {
    const std::string update(1'000'000, 'x');
    pages_[updateURL()] = update;
    offer({item("2.0", update)});
    for (const char* last :
         {"checking", "update 2.0 in focus", "download", "verification", "ready 2.0"}) {
        presenter_.onOffer = [this, last = std::string(last)] {
            if (!last.starts_with("update")) {
                updater_->choose(Choice::Install);
            }
        };
        updater().checkForUpdates();
        // It may be a step further by the time that is seen.
        ASSERT_TRUE(runUntil([&] {
            return testing::Value(presenter_.shown(), testing::Contains(std::string(last)));
        }));
        const std::vector<std::string> shown = presenter_.shown();
        updater_.reset();
        processEvents();
        EXPECT_EQ(presenter_.shown(), shown);
        EXPECT_EQ(content(place_), "old");
        EXPECT_THAT(leftovers(), IsEmpty());
        presenter_.clear();
    }
}

TEST_F(AppcastUpdaterScheduleTest, ABadKeyIsSaidBeforeAnythingIsLoaded) {
    key_ = "not a key";
    updater().checkForUpdates();
    EXPECT_THAT(
        presenter_.shown(),
        ElementsAre("The update signing key of this build is not valid, so updates cannot be "
                    "verified."));
    EXPECT_EQ(requests(), 0U);
}

TEST_F(AppcastUpdaterScheduleTest, ALogLineNamesTheVersionOnly) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    presenter_.onReadyToInstall = presenter_.onOffer;
    updater().checkForUpdates();
    ASSERT_TRUE(shows("relaunch"));
    EXPECT_THAT(
        logged(),
        ElementsAre("Version 2.0 is available.", "Version 2.0 was verified and installed."));
}

namespace {

/// Against a real server.
class AppcastUpdaterDownloadTest : public AppcastUpdaterTest {
protected:
    AppcastUpdaterDownloadTest()
        : server_([this](Connection& connection) {
              const std::string line = connection.readRequest().line;
              (line.starts_with("GET /feed.xml ") ? serveFeed : serveUpdate)(connection);
          }) {
        std::ofstream(folder_ / "pem") << server_.authority();
        session_ = std::make_unique<CurlURLSession>(CurlURLSession::Trust{{}, folder_ / "pem"});
        update("new content");
        presenter_.onOffer = [this] {
            updater_->choose(Choice::Install);
        };
        presenter_.onReadyToInstall = presenter_.onOffer;
    }
    ~AppcastUpdaterDownloadTest() override {
        updater_.reset();
        session_.reset();
    }

    URLSession* session() override { return session_.get(); }
    [[nodiscard]] std::string feedURL() const override { return server_.url("/feed.xml"); }
    [[nodiscard]] std::string updateURL() const override { return server_.url("/update"); }

    /// Serves that, signed, as version 2.0.
    void update(const std::string& update) {
        feed(AppcastBuilder().add(item("2.0", update)).text());
        serveUpdate = [update](Connection& connection) {
            connection.reply(200, update);
        };
    }
    void feed(const std::string& text) {
        serveFeed = [text](Connection& connection) {
            connection.reply(200, text);
        };
    }

    /// What the user is shown, from asking for an update to its end.
    std::vector<std::string> outcome() {
        presenter_.clear();
        updater().checkForUpdates();
        const bool hasEnded = runUntil([this] {
            const std::string last = presenter_.shown().back();
            return last.ends_with(".") || last.starts_with("Could not") || last == "no update" ||
                   last == "relaunch" || last.starts_with("reveal");
        });
        EXPECT_TRUE(hasEnded);
        return presenter_.shown();
    }

    LocalServer::Handler serveFeed;
    LocalServer::Handler serveUpdate;
    LocalServer server_;
    std::unique_ptr<CurlURLSession> session_;
};

LocalServer::Handler redirecting(int status, const std::string& location) {
    return [status, location](Connection& connection) {
        connection.reply(status, "moved", "Location: " + location + "\r\n");
    };
}

LocalServer::Handler answering(int status) {
    return [status](Connection& connection) {
        connection.reply(status, "no");
    };
}

/// A reply that announces that many bytes and is cut off after these.
LocalServer::Handler cutOff(std::size_t announced, const std::string& bytes) {
    return [announced, bytes](Connection& connection) {
        connection.write(
            "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n" + bytes);
        connection.cutOff();
    };
}

} // namespace

TEST_F(AppcastUpdaterDownloadTest, AnAppImageIsReplacedAndRelaunched) {
    chmod(place_.c_str(), 0750);
    EXPECT_THAT(
        outcome(),
        ElementsAre(
            "checking",
            "update 2.0 in focus",
            "download",
            "verification",
            "ready 2.0",
            "relaunch"));
    EXPECT_EQ(content(place_), "new content");
    struct stat status {};
    ASSERT_EQ(stat(place_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0750U);
}

TEST_F(AppcastUpdaterDownloadTest, AnInstalledUpdateCanBeStarted) {
    update("#!/bin/sh\nexit 42\n");
    EXPECT_EQ(outcome().back(), "relaunch");
    EXPECT_EQ(WEXITSTATUS(std::system(place_.c_str())), 42);
}

TEST_F(AppcastUpdaterDownloadTest, APackageIsStoredAndRevealed) {
    isPackage_ = true;
    feed(AppcastBuilder()
             .add(item("2.0", "new content").with("type", "application/vnd.debian.binary-package"))
             .text());
    const auto package = folder_ / "Downloads" / "orvel-agent-2.0.deb";
    EXPECT_EQ(outcome().back(), "reveal " + package.string());
    EXPECT_EQ(content(package), "new content");
    EXPECT_EQ(content(place_), "old");
    // Once more, as the package may never have been opened.
    EXPECT_EQ(outcome().back(), "reveal " + package.string());
    EXPECT_EQ(content(package), "new content");
}

TEST_F(AppcastUpdaterDownloadTest, AnUpdateMayBeLongerThanAReply) {
    const std::string large(URLSession::maximumReplyBytes * 2, 'x');
    update(large);
    EXPECT_EQ(outcome().back(), "relaunch");
    EXPECT_EQ(std::filesystem::file_size(place_), large.size());
}

TEST_F(AppcastUpdaterDownloadTest, AFeedThatCannotBeTrustedIsRefused) {
    const std::string secure = server_.url("/elsewhere");
    const std::string entities =
        "<!DOCTYPE rss [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;\">]>"
        "<rss version=\"2.0\"><channel>&b;</channel></rss>";
    const std::string outside = "<!DOCTYPE rss [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
                                "<rss version=\"2.0\"><channel>&x;</channel></rss>";
    const auto replying = [](const std::string& text) -> LocalServer::Handler {
        return [text](Connection& connection) {
            connection.reply(200, text);
        };
    };
    const auto offering = [&](const AppcastBuilder::Item& item) {
        return replying(AppcastBuilder().add(item).text());
    };
    const std::string feed = AppcastBuilder().add(item("2.0")).text();
    struct Case {
        const char* name;
        LocalServer::Handler serve;
        std::string sentence;
    };
    const std::vector<Case> cases = {
        {"missing",
         answering(404),
         "The update feed could not be loaded: the server answered with status 404."},
        {"busy",
         answering(503),
         "The update feed could not be loaded: the server answered with status 503."},
        {"partial",
         answering(206),
         "The update feed could not be loaded: the server answered with status 206."},
        {"lost",
         [](Connection& connection) { connection.reset(); },
         "The update feed could not be loaded. The network connection was lost."},
        {"cut off",
         cutOff(feed.size(), feed.substr(0, feed.size() / 2)),
         "The update feed could not be loaded. The network connection was lost."},
        {"redirect to http",
         redirecting(302, "http://127.0.0.1/feed.xml"),
         "The update feed has moved to an address without encryption, which is refused."},
        {"permanent redirect to http",
         redirecting(308, "http://127.0.0.1/feed.xml"),
         "The update feed has moved to an address without encryption, which is refused."},
        {"redirect",
         redirecting(301, secure),
         "The update feed has moved to another address, which is not followed."},
        {"huge",
         replying(std::string(maximumAppcastBytes + 1, ' ')),
         "The update feed is too long to be one."},
        {"endless",
         replying(std::string(URLSession::maximumReplyBytes + 1, ' ')),
         "The update feed could not be loaded. The reply of the server is too long."},
        {"empty", replying(""), "The update feed is not well-formed in line 1."},
        {"malformed",
         replying(feed.substr(0, feed.size() / 2)),
         "The update feed is not well-formed in line 3."},
        {"not RSS", replying("<html/>"), "The update feed is not an RSS 2.0 feed."},
        {"not UTF-8", replying(feed + "\xFF"), "The update feed is not UTF-8 text."},
        {"growing entities",
         replying(entities),
         "The update feed declares a document type, which is refused."},
        {"external entity",
         replying(outside),
         "The update feed declares a document type, which is refused."},
        {"parameter entity",
         replying("<!DOCTYPE rss [<!ENTITY % x SYSTEM \"https://127.0.0.1/x\"> %x;]>" + feed),
         "The update feed declares a document type, which is refused."},
        {"outside document type",
         replying("<!DOCTYPE rss SYSTEM \"https://127.0.0.1/x\">" + feed),
         "The update feed declares a document type, which is refused."},
        {"unknown entity",
         replying("<rss version=\"2.0\"><channel>&x;</channel></rss>"),
         "The update feed is not well-formed in line 1."},
        {"hidden by its encoding",
         replying("<?xml version=\"1.0\" encoding=\"UTF-7\"?>" + entities),
         "The update feed is not UTF-8 text."},
        {"no signature",
         offering(item("2.0").without("sparkle:edSignature")),
         "Update 2.0 in the feed has no signature."},
        {"garbled signature",
         offering(item("2.0").with("sparkle:edSignature", "====")),
         "Update 2.0 in the feed has an unusable signature."},
        {"no length",
         offering(item("2.0").without("length")),
         "Update 2.0 in the feed has no length."},
        {"absurd length",
         offering(item("2.0").with("length", "9999999999999")),
         "Update 2.0 in the feed has an unusable length."},
        {"no address",
         offering(item("2.0").without("url")),
         "Update 2.0 in the feed has no address."},
        {"download without encryption",
         offering(item("2.0").with("url", "http://127.0.0.1/update")),
         "Update 2.0 would have to be loaded without encryption, which is refused."},
        {"no version", offering(item("")), "An update in the feed has no version."},
        {"garbled version",
         offering(item("two")),
         "An update in the feed has an unusable version."}};
    for (const Case& each : cases) {
        serveFeed = each.serve;
        EXPECT_THAT(outcome(), ElementsAre("checking", each.sentence)) << each.name;
    }
    EXPECT_EQ(server_.requests().size(), cases.size());
    EXPECT_EQ(content(place_), "old");
}

TEST_F(AppcastUpdaterDownloadTest, WhatIsNotForThisCopyIsNoUpdate) {
    const std::vector<AppcastBuilder::Item> items = {
        item("0.9"),
        item("1.0"),
        item("1.0-rc2"),
        item("2.0").with("sparkle:arch", "aarch64"),
        item("2.0").with("sparkle:os", "macos"),
        item("2.0").without("sparkle:os"),
        item("2.0").with("type", "application/vnd.debian.binary-package"),
        item("2.0").withElement("sparkle:channel", "beta"),
        item("2.0").withElement("sparkle:minimumSystemVersion", "3")};
    for (const auto& each : items) {
        feed(AppcastBuilder().add(each).text());
        EXPECT_THAT(outcome(), ElementsAre("checking", "no update")) << each.text();
    }
    EXPECT_EQ(server_.requests().size(), items.size());
}

TEST_F(AppcastUpdaterDownloadTest, ADownloadThatCannotBeTrustedIsRefusedAndRemoved) {
    const std::string good = "new content";
    const UpdateSigner stranger;
    const auto replying = [](const std::string& text) -> LocalServer::Handler {
        return [text](Connection& connection) {
            connection.reply(200, text);
        };
    };
    struct Case {
        const char* name;
        LocalServer::Handler serve;
        AppcastBuilder::Item item;
        std::string sentence;
    };
    const std::string badSignature =
        "The signature of the update is not valid. It was not installed.";
    const std::vector<Case> cases = {
        {"garbled", replying("new cOntent"), item("2.0", good), badSignature},
        {"signature of something else",
         replying(good),
         item("2.0", good).with("sparkle:edSignature", signer_.signature("old content")),
         badSignature},
        {"another key",
         replying(good),
         item("2.0", good).with("sparkle:edSignature", stranger.signature(good)),
         badSignature},
        {"no signature but zeros",
         replying(good),
         item("2.0", good).with("sparkle:edSignature", std::string(86, 'A') + "=="),
         badSignature},
        {"truncated",
         replying(good.substr(0, 5)),
         item("2.0", good),
         "The update is shorter than announced: 5 bytes instead of 11."},
        {"empty",
         replying(""),
         item("2.0", good),
         "The update is shorter than announced: 0 bytes instead of 11."},
        {"signed, but shorter than announced",
         replying(good),
         item("2.0", good).with("length", "12"),
         "The update is shorter than announced: 11 bytes instead of 12."},
        {"longer",
         replying(good + "!"),
         item("2.0", good),
         "The update is longer than the announced 11 bytes."},
        {"signed, but longer than announced",
         replying(good),
         item("2.0", good).with("length", "10"),
         "The update is longer than the announced 10 bytes."},
        {"endless",
         [](Connection& connection) {
             connection.write("HTTP/1.1 200 OK\r\n\r\n");
             const std::string block(16'384, 'x');
             while (true) {
                 connection.write(block);
             }
         },
         item("2.0", good),
         "The update is longer than the announced 11 bytes."},
        {"cut off",
         cutOff(good.size(), good.substr(0, 5)),
         item("2.0", good),
         "The update could not be loaded. The network connection was lost."},
        {"lost",
         [](Connection& connection) { connection.reset(); },
         item("2.0", good),
         "The update could not be loaded. The network connection was lost."},
        {"missing",
         answering(404),
         item("2.0", good),
         "The update could not be loaded: the server answered with status 404."},
        {"partial",
         answering(206),
         item("2.0", good),
         "The update could not be loaded: the server answered with status 206."},
        {"redirect to http",
         redirecting(302, "http://127.0.0.1/update"),
         item("2.0", good),
         "The update has moved to an address without encryption, which is refused."},
        {"redirect",
         redirecting(302, server_.url("/elsewhere")),
         item("2.0", good),
         "The update has moved to another address, which is not followed."},
        {"unknown server",
         replying(good),
         item("2.0", good).with("url", "https://127.0.0.1:99999/update"),
         "The update could not be loaded. The address of the server is not valid."}};
    for (const Case& each : cases) {
        feed(AppcastBuilder().add(each.item).text());
        serveUpdate = each.serve;
        EXPECT_EQ(outcome().back(), each.sentence) << each.name;
        EXPECT_THAT(presenter_.shown(), testing::Not(testing::Contains("ready 2.0"))) << each.name;
        EXPECT_EQ(content(place_), "old") << each.name;
        EXPECT_TRUE(waitUntil([this] { return leftovers().empty(); })) << each.name;
    }
}

TEST_F(AppcastUpdaterDownloadTest, AFullDiskIsSaidBeforeTheDownload) {
    const SmallDisk disk(place_.parent_path(), 64 * 1024);
    std::ofstream(place_) << "old";
    update(std::string(1024 * 1024, 'x'));
    EXPECT_THAT(
        outcome(),
        ElementsAre(
            "checking",
            "update 2.0 in focus",
            "download",
            testing::StartsWith("Could not store the update beside " + place_.string())));
    EXPECT_EQ(content(place_), "old");
    EXPECT_TRUE(waitUntil([this] { return leftovers().empty(); }));
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(AppcastUpdaterDownloadTest, ARefusalIsNoEnd) {
    serveUpdate = answering(503);
    EXPECT_EQ(
        outcome().back(), "The update could not be loaded: the server answered with status 503.");
    update("new content");
    EXPECT_EQ(outcome().back(), "relaunch");
}

TEST_F(AppcastUpdaterDownloadTest, ARequestSaysNothingOfTheUser) {
    outcome();
    ASSERT_THAT(server_.requests(), SizeIs(2));
    for (const auto& request : server_.requests()) {
        EXPECT_THAT(request.headers, SizeIs(2));
        EXPECT_TRUE(request.hasHeader("Host"));
        EXPECT_TRUE(request.hasHeader("Accept"));
    }
}

} // namespace orvel::test
