// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/update/AppcastUpdater.h"
#include "tests/support/AppcastBuilder.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UpdateSigner.h"
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

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvel::test {

inline constexpr tavrin::Seconds day = UpdateSchedule::checkInterval;
inline constexpr tavrin::Seconds hour = UpdateSchedule::retryInterval;

inline std::string content(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Runs the event loop until the condition holds; returns false after a minute.
inline bool runUntil(const std::function<bool()>& holds) {
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

/// An AppImage of version 1.0 that checks for updates.
class AppcastUpdaterFixture : public testing::Test {
protected:
    AppcastUpdaterFixture() {
        std::filesystem::create_directories(folder_ / "mounted");
        std::filesystem::create_directories(place_.parent_path());
        std::ofstream(place_) << "old";
        chmod(place_.c_str(), 0755);
    }

    ~AppcastUpdaterFixture() override { EXPECT_THAT(leftovers(), testing::IsEmpty()); }

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

    /// A signed feed item for this update.
    [[nodiscard]] AppcastBuilder::Item
    item(const std::string& version, const std::string& update = "new") const {
        return {version, updateURL(), update, signer_};
    }
    [[nodiscard]] virtual std::string updateURL() const = 0;

    bool shows(const std::string& last) {
        return runUntil(
            [&] { return !presenter_.shown().empty() && presenter_.shown().back() == last; });
    }

    /// The files beside the installed one.
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

/// With a network whose pages the test sets.
class AppcastUpdaterFakeNetwork : public AppcastUpdaterFixture {
protected:
    AppcastUpdaterFakeNetwork() {
        session_.setHandler([this](const URLRequest& request) -> FakeURLSession::Answer {
            const auto found = pages_.find(request.url);
            return found == pages_.end() ? URLResponse{404, ""} : URLResponse{200, found->second};
        });
        offer({});
        pages_[updateURL()] = "new";
    }
    ~AppcastUpdaterFakeNetwork() override { updater_.reset(); }

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

    /// Then finishes the check that became due.
    void pass(tavrin::Seconds time) {
        const std::size_t expected = finishedChecks() + 1;
        const std::size_t before = requests();
        clock_.advance(time);
        processEvents();
        if (requests() > before) {
            ASSERT_TRUE(runUntil([&] { return finishedChecks() == expected; }));
        }
    }

    /// With a result, or with a reason in the log.
    [[nodiscard]] std::size_t finishedChecks() const {
        return observer_.checks + static_cast<std::size_t>(std::ranges::count_if(
                                      logStore_.lines(), [](const auto& line) {
                                          return !line.message.starts_with("Version ");
                                      }));
    }

    [[nodiscard]] std::size_t requests() const { return session_.requests().size(); }

    FakeURLSession session_;
    std::map<std::string, std::string> pages_;
};

} // namespace orvel::test
