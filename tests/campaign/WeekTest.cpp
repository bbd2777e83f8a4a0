// SPDX-License-Identifier: Apache-2.0
//
// Weeks of the desktop application, each in seconds: the real model, icon and windows, on a manual
// clock and on fakes. The machine sleeps and wakes up, the network, the keyring, the address book
// and the tray go and come back, tokens expire, and messages arrive all the time.
//
// In the end, everything in scope must have been stored, nothing may have been sent needlessly, and
// after each week the idle agent must cost the same as before the first one.
#include "OrvelAgent/ui/TavrinMacApp.h"
#include "tests/campaign/IdleCost.h"
#include "tests/campaign/WeekService.h"
#include "tests/campaign/WeekTrouble.h"
#include "tests/support/Campaign.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/IgnoredTrayWarning.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QEventLoop>
#include <QPixmapCache>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <QWidget>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using namespace std::chrono_literals;
using tavrin::Seconds;
using tavrin::ThreadScope;
using Network = WeekService::Network;
using Trouble = WeekTrouble::Kind;

constexpr int daysOfAWeek = 7;
/// In `./test`. The line of the campaign sets ORVEL_CAMPAIGN_WEEKS.
constexpr int weeksInTest = 1;
/// In the first week Qt fills its caches of glyphs and icons: up to 28 KiB were measured.
constexpr std::size_t maximumGrowthInFirstWeek = std::size_t{48} << 10U;
/// In all later weeks together. The caches still take up rare texts, up to 16 KiB; nothing else
/// grows. A week has about 300 scans, so two weeks show a leak of 60 bytes in each.
constexpr std::size_t maximumGrowthLater = std::size_t{32} << 10U;
/// In a second of real time in which nothing happens. An animation that does not end needs 60.
constexpr int maximumWakeUps = 10;
/// One scan every five minutes, each with a refresh, the known contacts, four attempts to upload
/// and the diagnostics.
constexpr std::size_t maximumRequestsInAnHour = 12 * 7;
/// After so many timers without trouble, everything must have arrived.
constexpr int timersToSettle = 400;

class Weeks final {
public:
    explicit Weeks(unsigned seed) : random_(seed) {
        qputenv("TMPDIR", temporary_.path().c_str());
        options_.sourcePath = database_.path();
        with_.userDefaults.set("collection.scope", std::string(tavrin::rawValue(scope_)));
        for (const char* handle : WeekService::handles) {
            chats_.push_back(
                database_.addChat({.guid = handle, .participants = {database_.addHandle(handle)}}));
        }
        with_.logStore.setOnWrite([this](std::string_view line) { follow(line); });
        makeEvents();
        addMessages(600);
        start();
    }

    ~Weeks() {
        app_.reset();
        qunsetenv("TMPDIR");
    }

    CampaignResult run(int weeks) {
        result_.units = weeks;
        // Fills the caches and the list of scans.
        everythingOnce();
        std::optional<IdleCost> before = quietHour();
        for (int week = 0; week < weeks && result_.findings.empty(); ++week) {
            for (int day = 0; day < daysOfAWeek && result_.findings.empty(); ++day) {
                passDay(day);
            }
            const std::optional<IdleCost> after = quietHour();
            if (before && after) {
                const std::size_t growth =
                    week == 0 ? maximumGrowthInFirstWeek : maximumGrowthLater;
                for (const std::string& change : after->changesSince(*before, growth)) {
                    find(change);
                }
            }
            if (week == 0) {
                before = after;
            }
        }
        if (const auto missing = service_.missing()) {
            find(*missing);
        }
        if (!std::filesystem::is_empty(temporary_.path())) {
            find("a copy of the database was left behind");
        }
        if (service_.mostRequestsInAnHour() > maximumRequestsInAnHour) {
            find(fmt::format("{} requests in an hour", service_.mostRequestsInAnHour()));
        }
        return result_;
    }

    [[nodiscard]] std::string summary() const {
        return fmt::format(
            "{} messages, {} scans, {} requests, at most {} an hour, {} lost replies",
            service_.messageCount(),
            scans_.load(),
            service_.requests(),
            service_.mostRequestsInAnHour(),
            service_.lostReplies());
    }

private:
    int pick(int count) { return std::uniform_int_distribution<>(0, count - 1)(random_); }
    bool happens(int percent) { return pick(100) < percent; }
    Seconds between(Seconds least, Seconds most) {
        return Seconds(std::uniform_real_distribution<>(least.count(), most.count())(random_));
    }

    void find(const std::string& what) {
        result_.findings.push_back(fmt::format("after {:.1f} h: {}", hours(), what));
    }

    [[nodiscard]] double hours() const { return with_.clock.uptime() / 1h; }

    void start() {
        app_ = std::make_unique<TavrinMacApp>(with_.platform, with_.updatePresenter, options_);
    }

    [[nodiscard]] AppModel& model() { return app_->model(); }

    /// On any thread.
    void follow(std::string_view line) {
        ++lines_;
        if (line.starts_with("the address book can be read again")) {
            service_.endContactsGap();
        } else if (line.starts_with("scan starting")) {
            ++scans_;
        }
    }

    void makeEvents() {
        const auto add = [this](int likelihood, auto happen) {
            events_.emplace_back(likelihood, std::move(happen));
        };
        add(20, [this] { lookAtWindows(); });
        add(4, [this] { sleepFor(between(10min, 3h)); });
        add(2, [this] { pause(); });
        add(2, [this] { reduceMotion(); });
        add(2, [this] { restartSessionBus(); });
        add(2, [this] { with_.instanceRegistry.beActivated(); });
        add(4, [this] { with_.softwareUpdater.passADay(); });
        add(1, [this] { endSession(); });
        add(1, [this] { restartAgent(); });
        add(1, [this] { addMessages(520); });
    }

    void addMessages(int count) {
        database_.inOneTransaction([&] {
            for (int i = 0; i < count; ++i) {
                const int chat = pick(static_cast<int>(chats_.size()));
                database_.addMessage(
                    {.guid = service_.addMessage(static_cast<WeekService::Chat>(chat)),
                     .date = MessagesDatabaseBuilder::someDate +
                             static_cast<std::int64_t>(with_.clock.uptime() / 1s) * 1'000'000'000,
                     .text = "text",
                     .chats = {chats_.at(static_cast<std::size_t>(chat))}});
            }
        });
    }

    void passDay(int day) {
        sleepFor(between(6h, 10h));
        const bool isWeekend = day >= 5;
        const Seconds evening = with_.clock.uptime() + between(isWeekend ? 3h : 12h, 16h);
        while (with_.clock.uptime() < evening && result_.findings.empty()) {
            addMessages(pick(25));
            for (const Trouble each : WeekTrouble::allKinds()) {
                trouble_.set(
                    each, happens(trouble_.isActive(each) ? 50 : trouble_.likelihood(each)));
            }
            for (const auto& [likelihood, happen] : events_) {
                if (happens(likelihood)) {
                    happen();
                }
            }
            pass(between(20min, 90min));
            check();
        }
    }

    void everythingOnce() {
        for (const Trouble each : WeekTrouble::allKinds()) {
            trouble_.set(each, true);
            pass(20min);
            trouble_.set(each, false);
            pass(20min);
            check();
        }
        for (const auto& [likelihood, happen] : events_) {
            happen();
            pass(20min);
            check();
        }
    }

    /// A minute or two with all windows open.
    void lookAtWindows() {
        for (const char* name :
             {TavrinMacApp::settings, TavrinMacApp::activityLog, TavrinMacApp::versionHistory}) {
            app_->openWindow(QString::fromLatin1(name));
        }
        app_->menuBarExtra().showPanel();
        isLogOpen_ = true;
        pass(between(30s, 120s));
        closeWindows();
    }

    void closeWindows() {
        const std::set<QString> names{
            QString::fromLatin1(TavrinMacApp::settings),
            QString::fromLatin1(TavrinMacApp::activityLog),
            QString::fromLatin1(TavrinMacApp::versionHistory),
            QStringLiteral("menu-bar-panel")};
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (names.contains(window->objectName())) {
                window->close();
            }
        }
        isLogOpen_ = false;
    }

    /// After waking up, the network comes last.
    void sleepFor(Seconds duration) {
        const Network before = service_.network();
        service_.setNetwork(Network::Offline);
        with_.clock.suspend(duration);
        pass(between(5s, 60s));
        service_.setNetwork(before);
    }

    /// Everything that is found over the bus goes and comes back.
    void restartSessionBus() {
        std::vector<Trouble> begun;
        for (const Trouble each :
             {Trouble::KeyringAway, Trouble::ContactsAway, Trouble::TrayAway}) {
            if (!trouble_.isActive(each)) {
                begun.push_back(each);
                trouble_.set(each, true);
            }
        }
        pass(between(1s, 60s));
        for (const Trouble each : begun) {
            trouble_.set(each, false);
        }
    }

    void pause() {
        model().collector().setPaused(true);
        pass(between(10min, 2h));
        model().collector().setPaused(false);
    }

    void reduceMotion() {
        with_.motionPreference.setReducesMotion(true);
        pass(between(10min, 2h));
        with_.motionPreference.setReducesMotion(false);
    }

    /// The user signs in again some time after the agent has noticed it.
    void endSession() {
        service_.endSession();
        pass(40min);
        signIn();
    }

    void signIn() {
        if (!service_.hasSessionEnded()) {
            return;
        }
        for (const Trouble each :
             {Trouble::Network, Trouble::KeyringLocked, Trouble::KeyringAway}) {
            trouble_.set(each, false);
        }
        settle();
        // The agent may not have noticed yet that the session is over.
        model().auth().signOut();
        runTask(model().auth().signIn());
        if (!model().auth().isSignedIn()) {
            find("the sign-in failed: " + model().auth().lastError().value_or(""));
        }
    }

    /// The user quits it and starts it again, or logs in again.
    void restartAgent() {
        // A keyring that is away at the start leaves the user signed out.
        trouble_.set(Trouble::KeyringAway, false);
        runTask(app_->stop());
        app_.reset();
        processEvents();
        trouble_.restartTrayWait();
        start();
        settle();
    }

    void pass(Seconds duration) {
        const Seconds end = with_.clock.uptime() + duration;
        while (settle()) {
            const Seconds remaining = end - with_.clock.uptime();
            const Seconds next = with_.clock.untilNextTimer().value_or(remaining);
            wakeUps_ += next < remaining ? 1 : 0;
            with_.clock.advance(std::min(next, remaining));
            if (next >= remaining) {
                break;
            }
        }
        settle();
    }

    /// Until the collection loop waits for time, a reply or the keyring. Returns false if it never
    /// does.
    bool settle() {
        processEvents();
        QTimer limit;
        limit.setSingleShot(true);
        limit.start(20s);
        while (!isLoopWaiting() && limit.isActive()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        if (!limit.isActive() && result_.findings.empty()) {
            find("the collection loop neither works nor waits");
        }
        return limit.isActive();
    }

    [[nodiscard]] bool isLoopWaiting() {
        return with_.keychain.isReadWaiting() || with_.clock.untilTimers().size() > otherTimers();
    }

    /// The timers that are not the collection loop's.
    [[nodiscard]] std::size_t otherTimers() {
        const bool isFlashing =
            model().needsAttention() && !with_.motionPreference.shouldReduceMotion() &&
            !model().collector().isScanning() && !model().collector().isPaused();
        const auto& trayGoneAt = trouble_.trayGoneAt();
        const bool awaitsTray =
            trayGoneAt && with_.clock.uptime() < *trayGoneAt + MenuBarExtra::trayTimeout;
        return (isFlashing ? 1U : 0U) + (awaitsTray ? 1U : 0U) + (isLogOpen_ ? 1U : 0U);
    }

    void check() {
        for (const std::string& finding : service_.takeFindings()) {
            find(finding);
        }
        const bool mayBeSignedOut = service_.hasSessionEnded() || with_.keychain.isReadWaiting();
        if (!mayBeSignedOut && !model().auth().isSignedIn()) {
            find("signed out, though the session goes on");
        }
        // What the fakes record is not the agent's.
        with_.logStore.forgetBefore(with_.clock.now() - CollectionLoop::diagnosticsWindow);
        with_.urlSession.forgetRequests();
        with_.addressBook.enumerations.clear();
        with_.applicationFocus.policies.clear();
        with_.keychain.removals.clear();
        with_.updatePresenter.clear();
        static_cast<void>(with_.userDefaults.takeChangedKeys());
    }

    /// Ends all trouble, then waits until nothing is left to send and measures an hour.
    std::optional<IdleCost> quietHour() {
        for (const Trouble each : WeekTrouble::allKinds()) {
            trouble_.set(each, false);
        }
        signIn();
        // This agent may not have shown its windows yet, and keeps what they were drawn in.
        lookAtWindows();
        if (!waitForQuietScans()) {
            return std::nullopt;
        }
        while (!hasOnlyQuietScans() && result_.findings.empty()) {
            pass(1h);
        }
        check();
        const std::size_t requests = service_.requests();
        const std::size_t lines = lines_;
        const std::size_t wakeUps = wakeUps_;
        pass(1h);
        IdleCost cost;
        cost.counts["requests in an hour"] = service_.requests() - requests;
        cost.counts["log lines in an hour"] = lines_ - lines;
        cost.counts["wake-ups in an hour"] = wakeUps_ - wakeUps;
        check();
        if (const int count = wakeUpsInARealSecond(); count > maximumWakeUps) {
            find(fmt::format("{} wake-ups in a second without a reason", count));
        }
        with_.logStore.forgetBefore(with_.clock.now());
        database_.execute("PRAGMA shrink_memory");
        QPixmapCache::clear();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        cost.counts["timers"] = with_.clock.untilTimers().size();
        cost.counts["requests in flight"] = with_.urlSession.inFlight();
        cost.counts["subscriptions"] = with_.tray.subscriptions() +
                                       with_.motionPreference.subscriptions() +
                                       with_.instanceRegistry.subscriptions();
        cost.counts["scans in the list"] = model().collector().history().size();
        cost.counts["windows"] = static_cast<std::size_t>(QApplication::topLevelWidgets().size());
        cost.counts["threads"] = threadCount();
        cost.counts["open files"] = descriptorCount();
        cost.allocatedBytes = allocatedBytes();
        std::cout << fmt::format("idle after {:.1f} h: {}", hours(), cost.summary()) << std::endl;
        return cost;
    }

    /// How often the event loop wakes up.
    static int wakeUpsInARealSecond() {
        int count = 0;
        QEventLoop loop;
        QObject::connect(
            QAbstractEventDispatcher::instance(),
            &QAbstractEventDispatcher::awake,
            &loop,
            [&count] { ++count; });
        QTimer end;
        QObject::connect(&end, &QTimer::timeout, &loop, &QEventLoop::quit);
        end.start(1s);
        loop.exec();
        return count;
    }

    /// The texts of errors in the list take memory, too.
    [[nodiscard]] bool hasOnlyQuietScans() {
        const auto& history = model().collector().history();
        return history.size() == CollectorService::maximumHistory &&
               std::ranges::none_of(
                   history, [](const ScanSummary& scan) { return scan.error || scan.scanned > 0; });
    }

    /// Until two scans without an error have found nothing.
    bool waitForQuietScans() {
        std::set<QUuid> quietScans;
        for (int timer = 0; timer < timersToSettle && settle(); ++timer) {
            const auto& history = model().collector().history();
            if (!history.empty() && !model().collector().isScanning()) {
                if (history.front().error || history.front().scanned > 0) {
                    quietScans.clear();
                } else {
                    quietScans.insert(history.front().id);
                }
            }
            if (quietScans.size() == 2) {
                return true;
            }
            with_.clock.advance(with_.clock.untilNextTimer().value_or(1s));
        }
        find("there is always something left to send");
        return false;
    }

    std::mt19937 random_;
    IgnoredTrayWarning ignoredTrayWarning_;
    TemporaryDirectory directory_;
    TemporaryDirectory temporary_;
    MessagesDatabaseBuilder database_{directory_ / "chat.db"};
    std::vector<std::int64_t> chats_;
    TestPlatform with_;
    const ThreadScope scope_ =
        pick(2) == 0 ? ThreadScope::KnownContactsOnly : ThreadScope::AllThreads;
    WeekService service_{with_, random_, scope_};
    WeekTrouble trouble_{with_, service_, random_};
    /// With their likelihood at a given hour, in percent.
    std::vector<std::pair<int, std::function<void()>>> events_;
    bool isLogOpen_ = false;
    std::atomic<std::size_t> lines_ = 0;
    std::atomic<std::size_t> scans_ = 0;
    std::size_t wakeUps_ = 0;
    CampaignResult result_;
    CollectorService::Options options_;
    std::unique_ptr<TavrinMacApp> app_;
};

} // namespace

TEST(WeekTest, TheIdleAgentCostsTheSameAfterAWeekAndNothingIsLost) {
    const int chosen = qEnvironmentVariableIntValue("ORVEL_CAMPAIGN_WEEKS");
    const int weeks = chosen > 0 ? chosen : weeksInTest;
    // Fills the caches of Qt and of the libraries. What it finds, a week finds, too.
    static_cast<void>(Weeks(0).run(0));
    processEvents();
    std::size_t before = allocatedBytes();
    runCampaign(weeksInTest, [&before, weeks](unsigned seed) {
        CampaignResult result;
        {
            Weeks life(seed);
            result = life.run(weeks);
            std::cout << life.summary() << std::endl;
        }
        processEvents();
        QPixmapCache::clear();
        const std::size_t after = allocatedBytes();
        std::cout << static_cast<std::int64_t>(after) - static_cast<std::int64_t>(before)
                  << " bytes more than before this seed" << std::endl;
        if (after > before + maximumGrowthInFirstWeek + maximumGrowthLater) {
            result.findings.push_back(
                fmt::format("{} bytes are left behind by agents that have ended", after - before));
        }
        before = after;
        return result;
    });
}

} // namespace orvel::test
