// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/AppModel.h"

#include "core/messages/ChatDatabaseSnapshot.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;
using test::FakeService;
using test::processEvents;
using test::runTask;
using test::waitUntil;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;
using Availability = ContactBridge::Availability;
using Line = test::RecordingLogStore::Line;

constexpr const char* expired =
    R"({"ok":false,"error":"Your session has expired.","code":"session_expired"})";

/// Stays in the middle of a copy.
class SlowFileCopier final : public tavrin::FileCopier {
public:
    explicit SlowFileCopier(bool listens) : listens_(listens) {}

    void awaitBeginning() { begun_.get_future().wait(); }
    void release() { end_.set_value(); }

    void copy(
        const std::filesystem::path&,
        const std::filesystem::path&,
        const tavrin::CancellationToken& cancellation) override {
        begun_.set_value();
        const auto registration = cancellation.onCancel([this] {
            if (listens_) {
                release();
            }
        });
        end_.get_future().wait();
        throw tavrin::TaskCancelled();
    }

private:
    /// To the cancellation.
    bool listens_;
    std::promise<void> begun_;
    std::promise<void> end_;
};

/// Breaks the rules of its port.
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

/// Breaks the rules of its port, too.
class ThrowingClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override { return {}; }
    [[nodiscard]] tavrin::Seconds uptime() const override { return {}; }
    [[nodiscard]] std::unique_ptr<Timer> schedule(tavrin::Seconds, std::function<void()>) override {
        throw std::runtime_error("There are no more timers.");
    }
};

QCoro::Task<> stopAndDestroy(std::unique_ptr<AppModel>* model) {
    co_await (*model)->stop();
    model->reset();
}

class AppModelTest : public testing::Test {
protected:
    AppModelTest() {
        qputenv("TMPDIR", temporary_.path().c_str());
        options_.sourcePath = (directory_ / "chat.db").string();
        options_.retryDelays = {};
        database_.emplace(directory_ / "chat.db");
        chat_ = database_->addChat({.participants = {database_->addHandle("+14155550134")}});
    }

    ~AppModelTest() override {
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

    /// A new process; nothing but its constructor has run.
    void begin() {
        model_.reset();
        model_ = std::make_unique<AppModel>(with_.platform, with_.updatePresenter, options_);
        QObject::connect(model_.get(), &AppModel::changed, &context_, [this] { ++changes_; });
    }

    /// A new process of a user who is signed in.
    void beginSignedIn() {
        with_.storeSession();
        begin();
    }

    /// And its first scan is over.
    void startSignedIn() {
        beginSignedIn();
        EXPECT_EQ(nextWait(), 900);
    }

    void startSignedOut() {
        begin();
        EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    }

    /// Until the loop sleeps, and for how long; only while nothing else does.
    double nextWait() {
        EXPECT_TRUE(waitUntil([this] {
            return !model_->needsAttention() && with_.clock.untilNextTimer().has_value();
        }));
        EXPECT_EQ(with_.clock.untilTimers().size(), 1U);
        return with_.clock.untilNextTimer()->count();
    }

    /// The loop wakes up.
    void passWait() { with_.clock.advance(with_.clock.untilNextTimer().value()); }

    /// How often the clock calls back, whoever waits for it.
    int wakeUpsInAnHour() {
        const tavrin::Seconds end = with_.clock.uptime() + 1h;
        int wakeUps = 0;
        while (with_.clock.uptime() < end) {
            // Until what the last one has started is over.
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
        for (const Line& line : with_.logStore.lines()) {
            if (line.level == level) {
                messages.push_back(line.message);
            }
        }
        return messages;
    }

    [[nodiscard]] std::set<std::string> sentGuids() const {
        const auto& guids = with_.service.guids();
        return {guids.begin(), guids.end()};
    }

    std::vector<std::string> leftovers() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(temporary_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    /// Ends the model in the state that it is in.
    void expectToEndWithoutATrace() {
        model_.reset();
        EXPECT_THAT(leftovers(), IsEmpty());
        EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
        const int changes = changes_;
        const auto lines = with_.logStore.lines().size();
        processEvents();
        EXPECT_EQ(with_.service.inFlight(), 0U);
        EXPECT_EQ(changes_, changes);
        EXPECT_EQ(with_.logStore.lines().size(), lines);
    }

    test::TemporaryDirectory directory_;
    test::TemporaryDirectory temporary_;
    std::optional<test::MessagesDatabaseBuilder> database_;
    std::int64_t chat_ = 0;
    int messages_ = 0;
    test::TestPlatform with_;
    CollectorService::Options options_;
    QObject context_;
    int changes_ = 0;
    std::unique_ptr<AppModel> model_;
};

} // namespace

// --- The loop ---

TEST_F(AppModelTest, ItScansAtTheStartAndEveryFifteenMinutes) {
    addMessages(3);
    startSignedIn();
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(with_.service.guids().size(), 3U);
    addMessages(1);
    with_.clock.advance(899s);
    EXPECT_EQ(with_.service.requestCount(FakeService::digestPath), 1U);
    with_.clock.advance(1s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 2U);
    EXPECT_EQ(with_.service.guids().back(), "message-4");
}

TEST_F(AppModelTest, AfterFailuresItWaitsTwiceAsLongEachTimeUpToFiveMinutes) {
    with_.fileCopier.setFails(true);
    beginSignedIn();
    std::vector<double> waits;
    for (int failure = 1; failure <= 10; ++failure) {
        waits.push_back(nextWait());
        EXPECT_EQ(scans(), static_cast<std::size_t>(failure));
        passWait();
    }
    EXPECT_THAT(waits, ElementsAre(60, 120, 240, 300, 300, 300, 300, 300, 300, 300));
    EXPECT_EQ(nextWait(), 300);

    with_.fileCopier.setFails(false);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    with_.fileCopier.setFails(true);
    passWait();
    EXPECT_EQ(nextWait(), 60);
}

TEST_F(AppModelTest, AScanThatIsSkippedLeavesTheNumberOfFailuresAsItWas) {
    with_.fileCopier.setFails(true);
    beginSignedIn();
    EXPECT_EQ(nextWait(), 60);
    passWait();
    EXPECT_EQ(nextWait(), 120);
    passWait();
    // Just after it has begun with a scan.
    model_->collector().setPaused(true);
    EXPECT_EQ(nextWait(), 120);
    EXPECT_EQ(scans(), 2U);
}

TEST_F(AppModelTest, WhateverGoesWrongItScansAgain) {
    auto broken = std::make_unique<ThrowingAddressBook>();
    ThrowingAddressBook& addressBook = *broken;
    with_.platform.addressBook = std::move(broken);
    startSignedIn();
    addressBook.throws = true;
    with_.clock.advance(900s);
    EXPECT_EQ(nextWait(), 60);
    EXPECT_EQ(model_->collector().history().front().error, "The address book is out of order.");
    addressBook.throws = false;
    with_.clock.advance(60s);
    EXPECT_EQ(nextWait(), 900);
}

TEST_F(AppModelTest, WhateverGoesWrongItLooksForFullDiskAccessAgain) {
    options_.sourcePath = (directory_ / "later.db").string();
    auto broken = std::make_unique<ThrowingAddressBook>();
    ThrowingAddressBook& addressBook = *broken;
    with_.platform.addressBook = std::move(broken);
    beginSignedIn();
    addressBook.throws = true;
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    EXPECT_THAT(
        logged(LogLevel::Error),
        Contains("could not look at the permissions: The address book is out of order."));
    addressBook.throws = false;
    const test::MessagesDatabaseBuilder later(directory_ / "later.db");
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 1U);
}

TEST_F(AppModelTest, AClockThatBreaksItsPromiseIsLoggedAndHoldsNobodyUp) {
    const auto former = std::exchange(with_.platform.clock, std::make_unique<ThrowingClock>());
    begin();
    EXPECT_TRUE(waitUntil([this] { return logged(LogLevel::Error).size() == 2; }));
    EXPECT_THAT(
        logged(LogLevel::Error),
        ElementsAre(
            "the attention flash has ended: There are no more timers.",
            "collection has ended: There are no more timers."));
    runTask(model_->stop());
    EXPECT_EQ(
        logged(LogLevel::Error).back(),
        "quitting without waiting for what was left to do: There are no more timers.");
    model_.reset();
}

TEST_F(AppModelTest, WhileSomethingBlocksItLooksEveryHalfMinute) {
    startSignedOut();
    EXPECT_TRUE(with_.urlSession.requests().empty());
    for (int look = 0; look < 5; ++look) {
        with_.clock.advance(30s);
        EXPECT_TRUE(isWaiting(30));
    }
    EXPECT_EQ(scans(), 0U);
    EXPECT_TRUE(with_.urlSession.requests().empty());
}

TEST_F(AppModelTest, WhileAttentionFlashesItWakesUpLessThanOnceASecond) {
    startSignedOut();
    EXPECT_LT(wakeUpsInAnHour(), 3600);
}

TEST_F(AppModelTest, WithReducedMotionItWakesUpLessThanOnceInTenSeconds) {
    with_.motionPreference.setReducesMotion(true);
    startSignedOut();
    EXPECT_LT(wakeUpsInAnHour(), 360);
}

TEST_F(AppModelTest, WithNothingWrongItWakesUpLessThanOnceInTenSeconds) {
    startSignedIn();
    EXPECT_LT(wakeUpsInAnHour(), 360);
    EXPECT_EQ(scans(), 5U);
}

TEST_F(AppModelTest, ASignInIsFoundWithoutARestart) {
    addMessages(2);
    startSignedOut();
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 2U);
}

TEST_F(AppModelTest, FullDiskAccessIsFoundWithoutARestart) {
    options_.sourcePath = (directory_ / "later.db").string();
    with_.storeSession();
    begin();
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    EXPECT_FALSE(model_->hasFullDiskAccess());
    EXPECT_EQ(model_->blockedReason(), "Full Disk Access is required to read Messages.");
    EXPECT_EQ(scans(), 0U);

    const test::MessagesDatabaseBuilder later(directory_ / "later.db");
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_TRUE(model_->hasFullDiskAccess());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    EXPECT_EQ(scans(), 1U);
}

TEST_F(AppModelTest, APauseBlocksUntilItIsOver) {
    startSignedIn();
    model_->collector().setPaused(true);
    passWait();
    EXPECT_EQ(nextWait(), 30);
    EXPECT_EQ(model_->blockedReason(), "Collection is paused.");
    model_->collector().setPaused(false);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 2U);
}

TEST_F(AppModelTest, AfterEightHoursOfSleepThereIsOneScan) {
    startSignedIn();
    with_.clock.advance(8h);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 2U);
}

TEST_F(AppModelTest, StartingToCollectAgainStartsNoSecondLoop) {
    beginSignedIn();
    model_->startCollecting();
    EXPECT_EQ(nextWait(), 900);
    model_->startCollecting();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(with_.service.requestCount(FakeService::digestPath), 1U);
}

// --- A scan ---

TEST_F(AppModelTest, WithoutTheKnownContactsAScanOfThemIsSkippedAndCountsAsFailed) {
    addMessages(1);
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    beginSignedIn();
    EXPECT_EQ(nextWait(), 60);
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(
        model_->collector().history().front().error,
        "Could not fetch the known-contact list, so this scan was skipped rather than reporting a "
        "false empty result: Busy.");
    EXPECT_EQ(with_.service.requestCount(FakeService::ingestPath), 0U);
    EXPECT_EQ(with_.service.requestCount(FakeService::diagnosticsPath), 0U);
}

TEST_F(AppModelTest, WithoutTheKnownContactsAScanOfEverythingGoesOn) {
    addMessages(1);
    with_.userDefaults.setString("collection.scope", "allThreads");
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    beginSignedIn();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 1U);
    EXPECT_THAT(
        logged(LogLevel::Error), Contains("going on without the known-contact list: Busy."));
}

TEST_F(AppModelTest, TheKnownContactsAreWidenedAndNamedByTheAddressBook) {
    const auto handle = database_->addHandle("ada@example.com");
    const auto chat = database_->addChat({.guid = "ada", .participants = {handle}});
    database_->addMessage({.guid = "from-ada", .chats = {chat}});
    ContactCard card;
    card.givenName = "Ada";
    card.phoneNumbers = {"+1 415 555 0134"};
    card.emailAddresses = {"ada@example.com"};
    with_.addressBook.cards = {card};
    startSignedIn();
    EXPECT_THAT(with_.service.guids(), ElementsAre("from-ada"));
    const auto& requests = with_.urlSession.requests();
    EXPECT_TRUE(std::ranges::any_of(requests, [](const URLRequest& request) {
        return request.body.value_or("").find(R"("Ada")") != std::string::npos;
    }));
}

TEST_F(AppModelTest, AnAddressBookThatAddsNothingIsNoted) {
    startSignedIn();
    EXPECT_THAT(
        logged(LogLevel::Error),
        ElementsAre(HasSubstr("address book gave no new identifiers (0 contacts)")));
}

TEST_F(AppModelTest, WithoutTheAddressBookAScanGoesOn) {
    addMessages(1);
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    startSignedIn();
    EXPECT_EQ(with_.service.guids().size(), 1U);
    EXPECT_THAT(logged(LogLevel::Error), ElementsAre(HasSubstr("Contacts access not granted")));
    EXPECT_THAT(with_.addressBook.enumerations, IsEmpty());
}

TEST_F(AppModelTest, TheUsersChoicesAreThoseOfTheNextScan) {
    addMessages(1);
    startSignedIn();
    model_->setMode(CollectionMode::MetadataOnly);
    passWait();
    nextWait();
    EXPECT_EQ(model_->collector().history().at(0).mode, CollectionMode::MetadataOnly);
    EXPECT_EQ(model_->collector().history().at(1).mode, CollectionMode::WithBodies);
}

TEST_F(AppModelTest, TheLogOfTheLastTwentyMinutesIsSentAfterEachScan) {
    startSignedIn();
    EXPECT_THAT(with_.service.diagnostics(), Contains(HasSubstr("[collector] scan done")));
    with_.logStore.append(
        {with_.clock.now(), LogLevel::Error, "another.subsystem", "net", "not ours"});
    for (int turn = 0; turn < 2; ++turn) {
        passWait();
        nextWait();
    }
    const auto& lines = with_.service.diagnostics();
    EXPECT_EQ(
        std::ranges::count_if(
            lines,
            [](const std::string& line) {
                return line.find("scan starting") != std::string::npos;
            }),
        2);
    EXPECT_THAT(lines, Each(Not(HasSubstr("not ours"))));
}

TEST_F(AppModelTest, DiagnosticsThatCannotBeSentDisturbNothing) {
    with_.service.setAnswer(FakeService::diagnosticsPath, 500);
    startSignedIn();
    EXPECT_EQ(model_->collector().lastError(), std::nullopt);
}

TEST_F(AppModelTest, ASessionThatTheServiceCallsExpiredStopsCollectionUntilTheNextSignIn) {
    startSignedIn();
    with_.service.setAnswer(FakeService::digestPath, 401, expired);
    passWait();
    EXPECT_TRUE(waitUntil([this] { return isWaiting(60); }));
    EXPECT_EQ(model_->blockedReason(), "Sign in to start collecting.");
    with_.clock.advance(60s);
    EXPECT_TRUE(isWaiting(30));

    with_.service.resetAnswer(FakeService::digestPath);
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
}

// --- Status ---

TEST_F(AppModelTest, SignedOutComesBeforeFullDiskAccess) {
    options_.sourcePath = (directory_ / "missing.db").string();
    startSignedOut();
    EXPECT_TRUE(model_->needsAttention());
    EXPECT_EQ(model_->blockedReason(), "Sign in to start collecting.");
}

TEST_F(AppModelTest, AllIsWellWithTheBrandImage) {
    startSignedIn();
    EXPECT_FALSE(model_->needsAttention());
    EXPECT_EQ(model_->blockedReason(), std::nullopt);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent");
}

TEST_F(AppModelTest, AScanShowsEvenWhenAttentionIsNeeded) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Scanning);
    model_->auth().signOut();
    EXPECT_TRUE(model_->needsAttention());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Scanning);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: scanning");
    with_.clock.advance(1h);
    EXPECT_FALSE(model_->attentionFlashOn());
}

TEST_F(AppModelTest, APauseShowsEvenWhenAttentionIsNeeded) {
    startSignedOut();
    model_->collector().setPaused(true);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Paused);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: collection paused");
}

TEST_F(AppModelTest, AttentionFlashesForLessThanASecondEveryThree) {
    startSignedOut();
    for (int beat = 0; beat < 3; ++beat) {
        EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
        EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent");
        const int changes = changes_;
        with_.clock.advance(AppModel::brandBeat);
        EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
        EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: Sign in to start collecting.");
        EXPECT_EQ(changes_, changes + 1);
        with_.clock.advance(AppModel::alertBeat);
        EXPECT_EQ(changes_, changes + 2);
    }
}

TEST_F(AppModelTest, TheFlashIsNeverStuckOnTheAttentionSymbol) {
    startSignedOut();
    with_.clock.advance(AppModel::brandBeat);
    ASSERT_TRUE(model_->attentionFlashOn());
    model_->collector().setPaused(true);
    EXPECT_FALSE(model_->attentionFlashOn());
    with_.clock.advance(AppModel::brandBeat);
    EXPECT_FALSE(model_->attentionFlashOn());

    // And begins anew with the brand image.
    model_->collector().setPaused(false);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    with_.clock.advance(AppModel::brandBeat);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
    model_->syncAttentionFlash();
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    EXPECT_FALSE(model_->attentionFlashOn());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
}

TEST_F(AppModelTest, WithReducedMotionAttentionIsASteadyImage) {
    startSignedOut();
    with_.clock.advance(AppModel::brandBeat);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
    with_.motionPreference.setReducesMotion(true);
    EXPECT_FALSE(model_->attentionFlashOn());
    const int changes = changes_;
    for (const tavrin::Seconds beat : {AppModel::brandBeat, AppModel::alertBeat}) {
        EXPECT_EQ(model_->statusIcon(), StatusIcon::BrandAlert);
        EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: Sign in to start collecting.");
        with_.clock.advance(beat);
    }
    EXPECT_EQ(changes_, changes);

    with_.motionPreference.setReducesMotion(false);
    EXPECT_EQ(changes_, changes + 1);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    with_.clock.advance(AppModel::brandBeat);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
}

TEST_F(AppModelTest, AnUpdateThatWaitsShowsWhenNothingElseIsWrong) {
    startSignedIn();
    SoftwareUpdate update;
    update.version = "2.0";
    with_.softwareUpdater.setOffer(update);
    with_.softwareUpdater.passADay();
    EXPECT_EQ(model_->statusIcon(), StatusIcon::BrandAlert);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: an update is ready to install");
    model_->auth().signOut();
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    with_.motionPreference.setReducesMotion(true);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: Sign in to start collecting.");
}

TEST_F(AppModelTest, ItTellsOfEveryChangeInItsServices) {
    startSignedIn();
    const auto expectChange = [this](const auto& act) {
        const int changes = changes_;
        act();
        EXPECT_GT(changes_, changes);
    };
    expectChange([this] { model_->collector().setPaused(true); });
    expectChange([this] { with_.softwareUpdater.passADay(); });
    expectChange([this] { model_->auth().signOut(); });
}

// --- Permissions ---

TEST_F(AppModelTest, ARecheckFindsFullDiskAccessGrantedAndTakenAway) {
    options_.sourcePath = (directory_ / "later.db").string();
    startSignedOut();
    runTask(model_->refreshPermissions());
    EXPECT_FALSE(model_->hasFullDiskAccess());
    const int changes = changes_;
    const test::MessagesDatabaseBuilder later(directory_ / "later.db");
    runTask(model_->refreshPermissions());
    EXPECT_TRUE(model_->hasFullDiskAccess());
    EXPECT_EQ(changes_, changes + 1);
    runTask(model_->refreshPermissions());
    EXPECT_EQ(changes_, changes + 1);
    std::filesystem::remove(directory_ / "later.db");
    runTask(model_->refreshPermissions());
    EXPECT_FALSE(model_->hasFullDiskAccess());
}

TEST_F(AppModelTest, ARecheckFindsTheAddressBookToo) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    startSignedOut();
    EXPECT_EQ(model_->contactsAvailability(), Availability::NotDetermined);
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    const int changes = changes_;
    runTask(model_->refreshPermissions());
    EXPECT_EQ(model_->contactsAvailability(), Availability::Denied);
    EXPECT_EQ(changes_, changes + 1);
}

TEST_F(AppModelTest, UnderADebuggerContactsAreNotAskedFor) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.processControl.hasDebugger = true;
    startSignedOut();
    runTask(model_->requestContactsAccess());
    EXPECT_EQ(with_.addressBook.questions, 0);
    EXPECT_THAT(with_.applicationFocus.policies, IsEmpty());
    EXPECT_THAT(
        logged(LogLevel::Error),
        ElementsAre(HasSubstr("not requesting Contacts: a debugger is attached")));
}

TEST_F(AppModelTest, TheQuestionForContactsComesToTheFront) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.addressBook.userAllows = false;
    startSignedOut();
    const auto asking = model_->requestContactsAccess();
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Regular);
    EXPECT_EQ(with_.applicationFocus.activations, 1);
    processEvents();
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
    EXPECT_THAT(
        logged(LogLevel::Error), ElementsAre(HasSubstr("Contacts request did not grant access")));
}

TEST_F(AppModelTest, AskingForContactsWhileTheQuestionIsOpenBringsItToTheFront) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.addressBook.userAllows = false;
    startSignedOut();
    const auto first = model_->requestContactsAccess();
    runTask(model_->requestContactsAccess());
    processEvents();
    EXPECT_TRUE(first.isReady());
    EXPECT_EQ(with_.addressBook.questions, 1);
    EXPECT_EQ(with_.addressBook.reminders, 1);
    EXPECT_EQ(with_.applicationFocus.activations, 2);
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
    EXPECT_EQ(with_.applicationFocus.policies.size(), 2U);
    EXPECT_EQ(logged(LogLevel::Error).size(), 1U);
}

TEST_F(AppModelTest, AQuestionForContactsAskedTwiceAndAllowedIsOneMoreScan) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    startSignedIn();
    const auto first = model_->requestContactsAccess();
    runTask(model_->requestContactsAccess());
    EXPECT_TRUE(waitUntil([&] { return first.isReady(); }));
    EXPECT_EQ(scans(), 2U);
}

TEST_F(AppModelTest, WhoeverHasRefusedTheContactsCanBeAskedAgain) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.addressBook.userAllows = false;
    startSignedOut();
    runTask(model_->requestContactsAccess());
    EXPECT_EQ(model_->contactsAvailability(), Availability::NotDetermined);
    with_.addressBook.userAllows = true;
    runTask(model_->requestContactsAccess());
    EXPECT_EQ(with_.addressBook.questions, 2);
    EXPECT_EQ(model_->contactsAvailability(), Availability::Granted);
}

TEST_F(AppModelTest, AQuestionForContactsThatGoesWrongCanBeAskedAgain) {
    auto broken = std::make_unique<ThrowingAddressBook>();
    ThrowingAddressBook& addressBook = *broken;
    with_.platform.addressBook = std::move(broken);
    startSignedOut();
    addressBook.throws = true;
    for (std::size_t question = 1; question <= 2; ++question) {
        runTask(model_->requestContactsAccess());
        EXPECT_EQ(with_.applicationFocus.policies.size(), 2 * question);
        EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
    }
    EXPECT_THAT(
        logged(LogLevel::Error),
        Contains("could not ask for the contacts: The address book is out of order.").Times(2));
}

TEST_F(AppModelTest, GrantedContactsLookAtAllConversationsAgainAtOnce) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    addMessages(3);
    startSignedIn();
    EXPECT_EQ(scans(), 1U);
    runTask(model_->requestContactsAccess());
    EXPECT_EQ(model_->contactsAvailability(), Availability::Granted);
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
    EXPECT_EQ(scans(), 2U);
    EXPECT_EQ(with_.service.guids().size(), 6U);
    EXPECT_EQ(nextWait(), 900);
}

TEST_F(AppModelTest, ContactsGrantedDuringAScanCountForAllConversations) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    const auto handle = database_->addHandle("ada@example.com");
    const auto chat = database_->addChat({.guid = "ada", .participants = {handle}});
    addMessages(600);
    database_->addMessage({.guid = "from-ada", .chats = {chat}});
    ContactCard card;
    card.phoneNumbers = {"+1 415 555 0134"};
    card.emailAddresses = {"ada@example.com"};
    with_.addressBook.cards = {card};
    beginSignedIn();
    // The message of somebody who is not known by that address has been passed over.
    EXPECT_EQ(nextWait(), 10);
    EXPECT_FALSE(sentGuids().contains("from-ada"));

    auto request = model_->requestContactsAccess();
    EXPECT_TRUE(
        waitUntil([this] { return model_->contactsAvailability() == Availability::Granted; }));
    with_.clock.advance(10s);
    EXPECT_TRUE(waitUntil([this] { return scans() == 1U && isWaiting(10); }));
    with_.clock.advance(10s);
    runTask(std::move(request));
    EXPECT_EQ(sentGuids().size(), 601U);
    EXPECT_EQ(scans(), 2U);
    // The loop has slept since the first one ended.
    EXPECT_EQ(nextWait(), 890);
}

TEST_F(AppModelTest, ProgressThatCannotBeForgottenIsLoggedAndTheScanGoesOn) {
    startSignedIn();
    with_.userDefaults.setFailsWrites(true);
    runTask(model_->requestContactsAccess());
    EXPECT_THAT(
        logged(LogLevel::Error),
        Contains(HasSubstr("could not forget the progress of earlier scans: ")));
    EXPECT_EQ(scans(), 2U);
    EXPECT_EQ(model_->settingsError(), std::nullopt);
}

// --- Choices ---

TEST_F(AppModelTest, TheUsersChoicesAreRead) {
    with_.userDefaults.setString("collection.mode", "metadataOnly");
    with_.userDefaults.setString("collection.scope", "allThreads");
    with_.userDefaults.setBoolean("startAtLogin", true);
    begin();
    EXPECT_EQ(model_->mode(), CollectionMode::MetadataOnly);
    EXPECT_EQ(model_->scope(), ThreadScope::AllThreads);
    EXPECT_TRUE(model_->startAtLogin());
}

TEST_F(AppModelTest, TheUsersChoicesAreInForceAtOnceAndThenSaved) {
    startSignedOut();
    EXPECT_FALSE(model_->startAtLogin());
    const int changes = changes_;
    model_->setMode(CollectionMode::MetadataOnly);
    model_->setScope(ThreadScope::AllThreads);
    model_->setStartAtLogin(true);
    EXPECT_EQ(changes_, changes + 3);
    EXPECT_EQ(model_->mode(), CollectionMode::MetadataOnly);
    EXPECT_EQ(model_->scope(), ThreadScope::AllThreads);
    EXPECT_TRUE(model_->startAtLogin());
    EXPECT_TRUE(waitUntil([this] { return with_.userDefaults.contains("startAtLogin"); }));
    EXPECT_EQ(with_.userDefaults.string("collection.mode"), "metadataOnly");
    EXPECT_EQ(with_.userDefaults.string("collection.scope"), "allThreads");
    EXPECT_EQ(with_.userDefaults.boolean("startAtLogin"), true);
}

TEST_F(AppModelTest, TheLastOfManyChoicesIsTheOneThatIsSaved) {
    startSignedOut();
    for (int i = 0; i < 50; ++i) {
        model_->setScope(ThreadScope::AllThreads);
        model_->setScope(ThreadScope::KnownContactsOnly);
    }
    model_.reset();
    EXPECT_EQ(with_.userDefaults.string("collection.scope"), "knownContactsOnly");
}

TEST_F(AppModelTest, AChoiceThatCannotBeSavedIsInForceAndTheUserIsTold) {
    startSignedOut();
    with_.userDefaults.setFailsWrites(true);
    model_->setMode(CollectionMode::MetadataOnly);
    EXPECT_TRUE(waitUntil([this] { return model_->settingsError().has_value(); }));
    EXPECT_EQ(
        model_->settingsError(),
        "Your last choice holds only until Orvel Agent quits, because it could not be saved (Could "
        "not write the settings: No space left on device).");
    EXPECT_EQ(model_->mode(), CollectionMode::MetadataOnly);
    EXPECT_THAT(logged(LogLevel::Error), ElementsAre(model_->settingsError().value()));

    with_.userDefaults.setFailsWrites(false);
    model_->setScope(ThreadScope::AllThreads);
    EXPECT_TRUE(waitUntil([this] { return !model_->settingsError(); }));
}

TEST_F(AppModelTest, TheSystemIsToldOfEveryChoiceToStartAtLogin) {
    startSignedOut();
    model_->setStartAtLogin(true);
    model_->setStartAtLogin(true);
    model_->setStartAtLogin(false);
    EXPECT_THAT(with_.loginItem.changes, ElementsAre(true, true, false));
}

TEST_F(AppModelTest, ALoginItemThatCannotBeChangedIsNoError) {
    startSignedOut();
    with_.loginItem.error = tavrin::PlatformError("test", 1, "No such folder.");
    model_->setStartAtLogin(true);
    EXPECT_TRUE(waitUntil([this] { return with_.userDefaults.contains("startAtLogin"); }));
    processEvents();
    EXPECT_TRUE(model_->startAtLogin());
    EXPECT_EQ(model_->settingsError(), std::nullopt);
    EXPECT_THAT(
        logged(LogLevel::Info), Contains("could not change the login item: No such folder."));
}

TEST_F(AppModelTest, ARescanSendsEverythingAgainAtTheNextTurn) {
    addMessages(2);
    startSignedIn();
    runTask(model_->rescanFromBeginning());
    EXPECT_EQ(scans(), 1U);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 4U);
}

TEST_F(AppModelTest, ARescanThatCannotBePreparedIsTold) {
    startSignedIn();
    with_.userDefaults.setFailsWrites(true);
    runTask(model_->rescanFromBeginning());
    EXPECT_EQ(
        model_->rescanError(),
        "The re-scan could not be prepared (Could not write the settings: No space left on "
        "device).");
    EXPECT_EQ(model_->settingsError(), std::nullopt);
    with_.userDefaults.setFailsWrites(false);
    runTask(model_->rescanFromBeginning());
    EXPECT_EQ(model_->rescanError(), std::nullopt);
}

TEST_F(AppModelTest, AChoiceAndARescanDoNotHideEachOthersFailure) {
    startSignedIn();
    with_.userDefaults.setFailsWrites(true);
    model_->setMode(CollectionMode::MetadataOnly);
    runTask(model_->rescanFromBeginning());
    const auto settingsError = model_->settingsError();
    EXPECT_TRUE(settingsError);
    EXPECT_TRUE(model_->rescanError());
    with_.userDefaults.setFailsWrites(false);
    runTask(model_->rescanFromBeginning());
    EXPECT_EQ(model_->rescanError(), std::nullopt);
    EXPECT_EQ(model_->settingsError(), settingsError);

    with_.userDefaults.setFailsWrites(true);
    runTask(model_->rescanFromBeginning());
    with_.userDefaults.setFailsWrites(false);
    model_->setMode(CollectionMode::WithBodies);
    EXPECT_TRUE(waitUntil([this] { return !model_->settingsError(); }));
    EXPECT_TRUE(model_->rescanError());
}

TEST_F(AppModelTest, ARelaunchIsScheduledBeforeItQuits) {
    startSignedOut();
    model_->relaunch();
    EXPECT_EQ(with_.processControl.relaunches, 1);
    EXPECT_EQ(with_.processControl.terminations, 1);
}

TEST_F(AppModelTest, ItsLogIsItsOwnAndTheUpdaters) {
    begin();
    EXPECT_EQ(model_->logSubsystems().application, "app.test");
    EXPECT_EQ(model_->logSubsystems().updater, "org.sparkle-project.Sparkle");
}

// --- Leaving ---

TEST_F(AppModelTest, OnceStoppedItScansNoMore) {
    startSignedIn();
    runTask(model_->stop());
    EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
    model_->startCollecting();
    runTask(model_->requestContactsAccess());
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
    // Its services are still there.
    EXPECT_TRUE(model_->auth().isSignedIn());
}

TEST_F(AppModelTest, StoppingEndsAScan) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    runTask(model_->stop());
    EXPECT_FALSE(model_->collector().isScanning());
    EXPECT_EQ(model_->collector().lastError(), std::nullopt);
    EXPECT_EQ(model_->collector().history().front().error, std::nullopt);
    EXPECT_THAT(logged(LogLevel::Error), Each(Not(HasSubstr("scan"))));
    EXPECT_THAT(leftovers(), IsEmpty());
    EXPECT_EQ(with_.service.inFlight(), 0U);
}

TEST_F(AppModelTest, StoppingWaitsUntilTheKeychainHasTheSession) {
    startSignedIn();
    model_->auth().signOut();
    auto stopping = model_->stop();
    EXPECT_FALSE(stopping.isReady());
    runTask(std::move(stopping));
    EXPECT_EQ(logged(LogLevel::Error).back().find("quitting before"), std::string::npos);
}

TEST_F(AppModelTest, ASessionThatIsNotKeptIsLogged) {
    startSignedIn();
    with_.keychain.writeError = tavrin::PlatformError("test", 1, "The keychain is locked.");
    model_->auth().signOut();
    runTask(model_->stop());
    EXPECT_EQ(
        logged(LogLevel::Error).back(),
        "the session will not outlive this process: The keychain is locked.");
}

TEST_F(AppModelTest, StoppingTakesNoLongerThanTwoSeconds) {
    auto copier = std::make_unique<SlowFileCopier>(false);
    SlowFileCopier& slow = *copier;
    with_.platform.fileCopier = std::move(copier);
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return model_->collector().isScanning(); }));
    slow.awaitBeginning();
    auto stopping = model_->stop();
    with_.clock.advance(1s);
    processEvents();
    EXPECT_FALSE(stopping.isReady());
    with_.clock.advance(1s);
    EXPECT_TRUE(stopping.isReady());
    EXPECT_EQ(logged(LogLevel::Error).back(), "quitting before everything had come to its end");
    slow.release();
    expectToEndWithoutATrace();
}

// --- Gone at any moment ---

TEST_F(AppModelTest, ItMayGoAtTheVeryStart) {
    begin();
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileTheKeychainIsLocked) {
    with_.keychain.lock();
    begin();
    processEvents();
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItSleeps) {
    startSignedIn();
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItFlashes) {
    startSignedOut();
    with_.clock.advance(AppModel::brandBeat);
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileATokenIsRefreshed) {
    with_.service.setAnswer(FakeService::refreshPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::refreshPath));
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItFetchesTheKnownContacts) {
    with_.service.setAnswer(FakeService::digestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::digestPath));
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItReadsTheContacts) {
    with_.addressBook.hold();
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return !with_.addressBook.enumerations.empty(); }));
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItCopiesTheDatabase) {
    auto copier = std::make_unique<SlowFileCopier>(true);
    SlowFileCopier& slow = *copier;
    with_.platform.fileCopier = std::move(copier);
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return model_->collector().isScanning(); }));
    slow.awaitBeginning();
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileABatchIsOnItsWay) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    EXPECT_THAT(leftovers(), Not(IsEmpty()));
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoBetweenTwoBatches) {
    addMessages(600);
    beginSignedIn();
    EXPECT_EQ(nextWait(), 10);
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoBetweenTwoAttempts) {
    addMessages(1);
    options_.retryDelays = {5};
    with_.service.setAnswer(FakeService::ingestPath, 503);
    beginSignedIn();
    EXPECT_EQ(nextWait(), 5);
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItReadsTheLog) {
    with_.logStore.hold();
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return !with_.logStore.reads().empty(); }));
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoWhileItSendsDiagnostics) {
    with_.service.setAnswer(FakeService::diagnosticsPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::diagnosticsPath));
    expectToEndWithoutATrace();
}

TEST_F(AppModelTest, ItMayGoAtEveryStepOfAScan) {
    addMessages(3);
    with_.storeSession();
    // A few events later each time; where the worker is then is another matter.
    std::size_t finished = 0;
    for (int events = 0; finished < 3; events += 1 + events / 20) {
        begin();
        for (int event = 0; event < events; ++event) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        }
        finished += scans();
        expectToEndWithoutATrace();
    }
    EXPECT_EQ(finished, 3U);
}

TEST_F(AppModelTest, ItMayGoWhileItLooksAtThePermissions) {
    startSignedOut();
    const auto looking = model_->refreshPermissions();
    expectToEndWithoutATrace();
    EXPECT_TRUE(looking.isReady());
}

TEST_F(AppModelTest, ItMayGoWhileTheUserSignsIn) {
    startSignedOut();
    const auto signingIn = model_->auth().signIn();
    EXPECT_TRUE(waitUntil([this] { return with_.browser.isWaiting(); }));
    expectToEndWithoutATrace();
    EXPECT_TRUE(signingIn.isReady());
}

TEST_F(AppModelTest, ItMayGoWhileASignInIsExchanged) {
    with_.service.setAnswer(FakeService::customTokenPath, std::nullopt);
    with_.letTheUserSignIn();
    startSignedOut();
    const auto signingIn = model_->auth().signIn();
    EXPECT_TRUE(waitForRequest(FakeService::customTokenPath));
    expectToEndWithoutATrace();
    EXPECT_TRUE(signingIn.isReady());
}

TEST_F(AppModelTest, ItMayGoWhileTheUserIsAskedForContacts) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.addressBook.hold();
    startSignedOut();
    const auto asking = model_->requestContactsAccess();
    const auto askingAgain = model_->requestContactsAccess();
    expectToEndWithoutATrace();
    EXPECT_TRUE(asking.isReady());
    EXPECT_TRUE(askingAgain.isReady());
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
}

TEST_F(AppModelTest, ItMayGoWhileOneScanWaitsForAnother) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    const auto asking = model_->requestContactsAccess();
    processEvents();
    EXPECT_FALSE(asking.isReady());
    expectToEndWithoutATrace();
    EXPECT_TRUE(asking.isReady());
}

TEST_F(AppModelTest, ItMayGoWhileItStops) {
    startSignedIn();
    model_->auth().signOut();
    const auto stopping = model_->stop();
    EXPECT_FALSE(stopping.isReady());
    model_.reset();
    EXPECT_TRUE(stopping.isReady());
    EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
}

TEST_F(AppModelTest, ItMayBeDestroyedByThoseWhoStoppedIt) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    runTask(stopAndDestroy(&model_));
    EXPECT_FALSE(model_);
    EXPECT_THAT(leftovers(), IsEmpty());
    processEvents();
}

TEST_F(AppModelTest, WhatWasChosenLastIsSavedWhenItGoes) {
    startSignedOut();
    model_->setMode(CollectionMode::MetadataOnly);
    model_->setStartAtLogin(true);
    model_.reset();
    EXPECT_EQ(with_.userDefaults.string("collection.mode"), "metadataOnly");
    EXPECT_EQ(with_.userDefaults.boolean("startAtLogin"), true);
}

} // namespace orvel
