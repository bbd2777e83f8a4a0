// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/AppModel.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// Its functions throw while `throws` is set, which the port does not allow.
class ThrowingAddressBook final : public AddressBook {
public:
    bool throws = false;

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override {
        if (throws) {
            throw std::runtime_error("The address book is out of order.");
        }
        return AuthorizationStatus::Denied;
    }

    void requestAccess(std::function<void(bool)>) override {}
    void enumerateCards(Fields, std::function<void(Cards)>) override {}
};

/// An `AppModel` over fakes and a real Messages database.
class AppModelFixture : public testing::Test {
protected:
    AppModelFixture() {
        qputenv("TMPDIR", temporary_.path().c_str());
        options_.sourcePath = (directory_ / "chat.db").string();
        options_.retryDelays = {};
        database_.emplace(directory_ / "chat.db");
        chat_ = database_->addChat({.participants = {database_->addHandle("+14155550134")}});
    }

    ~AppModelFixture() override {
        model_.reset();
        qunsetenv("TMPDIR");
    }

    void addMessages(int count) {
        database_->inOneTransaction([&] {
            for (int i = 0; i < count; ++i) {
                ++messages_;
                database_->addMessage(
                    {.guid = fmt::format("message-{}", messages_),
                     .text = "text",
                     .chats = {chat_}});
            }
        });
    }

    /// Replaces the model. Only the new model's constructor has run.
    void begin() {
        model_.reset();
        model_ = std::make_unique<AppModel>(with_.platform, with_.updatePresenter, options_);
        QObject::connect(model_.get(), &AppModel::changed, &context_, [this] { ++changes_; });
        QObject::connect(
            model_.get(), &AppModel::attentionFlashChanged, &context_, [this] { ++flashChanges_; });
    }

    /// Like `begin`, with a stored session.
    void beginSignedIn() {
        with_.storeSession();
        begin();
    }

    /// Like `beginSignedIn`, and waits for the end of the first scan.
    void startSignedIn() {
        beginSignedIn();
        EXPECT_EQ(nextWait(), 900);
    }

    void startSignedOut() {
        begin();
        EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    }

    /// Waits until the loop sleeps and returns the seconds. No other timer may be running.
    double nextWait() {
        EXPECT_TRUE(waitUntil([this] {
            return !model_->needsAttention() && with_.clock.untilNextTimer().has_value();
        }));
        EXPECT_EQ(with_.clock.untilTimers().size(), 1U);
        return with_.clock.untilNextTimer()->count();
    }

    /// Advances the clock to the next timer.
    void passWait() { with_.clock.advance(with_.clock.untilNextTimer().value()); }

    /// Counts all timers of the clock that fire.
    int wakeUpsInAnHour() {
        const tavrin::Seconds end = with_.clock.uptime() + std::chrono::hours(1);
        int wakeUps = 0;
        while (with_.clock.uptime() < end) {
            // The previous wake-up has been handled once it sets a new timer.
            EXPECT_TRUE(waitUntil([this] { return with_.clock.untilNextTimer().has_value(); }));
            passWait();
            ++wakeUps;
        }
        EXPECT_TRUE(waitUntil([this] { return with_.clock.untilNextTimer().has_value(); }));
        return wakeUps;
    }

    bool isWaiting(double seconds) {
        return std::ranges::count(with_.clock.untilTimers(), tavrin::Seconds(seconds)) > 0;
    }

    bool waitForRequest(std::string_view path, std::size_t count = 1) {
        return waitUntil([&] { return with_.service.requestCount(path) == count; });
    }

    [[nodiscard]] std::size_t scans() const { return model_->collector().history().size(); }

    [[nodiscard]] std::vector<std::string> logged(LogLevel level) const {
        std::vector<std::string> messages;
        for (const auto& line : with_.logStore.lines()) {
            if (line.level == level) {
                messages.push_back(line.message);
            }
        }
        return messages;
    }

    TemporaryDirectory directory_;
    /// For the model's copies of the database.
    TemporaryDirectory temporary_;
    std::optional<MessagesDatabaseBuilder> database_;
    std::int64_t chat_ = 0;
    int messages_ = 0;
    TestPlatform with_;
    CollectorService::Options options_;
    QObject context_;
    /// How often each signal was emitted.
    int changes_ = 0;
    int flashChanges_ = 0;
    std::unique_ptr<AppModel> model_;
};

} // namespace orvel::test
