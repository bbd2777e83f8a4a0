// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;

/// A copy lasts until it is released or, if it observes cancellation, cancelled.
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
    bool listens_;
    std::promise<void> begun_;
    std::promise<void> end_;
};

QCoro::Task<> stopAndDestroy(std::unique_ptr<AppModel>* model) {
    co_await (*model)->stop();
    model->reset();
}

class AppModelEndTest : public AppModelFixture {
protected:
    std::vector<std::string> leftovers() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(temporary_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    /// Destroys the model in its current state.
    void destroyAndExpectNoRemains() {
        model_.reset();
        EXPECT_THAT(leftovers(), IsEmpty());
        EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
        const int changes = changes_ + flashChanges_;
        const auto lines = with_.logStore.lines().size();
        processEvents();
        EXPECT_EQ(with_.service.inFlight(), 0U);
        EXPECT_EQ(changes_ + flashChanges_, changes);
        EXPECT_EQ(with_.logStore.lines().size(), lines);
    }
};

} // namespace

TEST_F(AppModelEndTest, DoesNotScanAfterStop) {
    startSignedIn();
    runTask(model_->stop());
    EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
    model_->startCollecting();
    runTask(model_->requestContactsAccess());
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
    // The services still exist.
    EXPECT_TRUE(model_->auth().isSignedIn());
}

TEST_F(AppModelEndTest, StopEndsTheRunningScan) {
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

TEST_F(AppModelEndTest, StopWaitsUntilTheKeychainHasTheSession) {
    startSignedIn();
    model_->auth().signOut();
    auto stopping = model_->stop();
    EXPECT_FALSE(stopping.isReady());
    runTask(std::move(stopping));
    EXPECT_THAT(logged(LogLevel::Error), Each(Not(HasSubstr("quitting before"))));
}

TEST_F(AppModelEndTest, LogsThatTheSessionWasNotStored) {
    startSignedIn();
    with_.keychain.writeError = tavrin::PlatformError("test", 1, "The keychain is locked.");
    model_->auth().signOut();
    runTask(model_->stop());
    EXPECT_EQ(
        logged(LogLevel::Error).back(),
        "the session will not outlive this process: The keychain is locked.");
}

TEST_F(AppModelEndTest, StopTakesAtMostTwoSeconds) {
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
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedRightAfterConstruction) {
    begin();
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileTheKeychainIsLocked) {
    with_.keychain.lock();
    begin();
    processEvents();
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileAnExpiredSessionWaitsForTheKeychain) {
    with_.urlSession.setHandler([this](const URLRequest& request) {
        if (request.url.find(FakeService::digestPath) != std::string::npos) {
            with_.keychain.lock();
            return URLResponse{401, R"({"ok":false,"error":"gone","code":"session_expired"})"};
        }
        return URLResponse{
            200, R"({"id_token":"id-2","refresh_token":"refresh-2","expires_in":"3600"})"};
    });
    beginSignedIn();
    ASSERT_TRUE(waitUntil([this] { return with_.keychain.isReadWaiting(); }));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItSleeps) {
    startSignedIn();
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileTheIconFlashes) {
    startSignedOut();
    with_.clock.advance(AttentionFlash::brandDuration);
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedDuringATokenRefresh) {
    with_.service.setAnswer(FakeService::refreshPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::refreshPath));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItFetchesTheKnownContacts) {
    with_.service.setAnswer(FakeService::digestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::digestPath));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItReadsTheContacts) {
    with_.addressBook.hold();
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return !with_.addressBook.enumerations.empty(); }));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItCopiesTheDatabase) {
    auto copier = std::make_unique<SlowFileCopier>(true);
    SlowFileCopier& slow = *copier;
    with_.platform.fileCopier = std::move(copier);
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return model_->collector().isScanning(); }));
    slow.awaitBeginning();
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedDuringAnUpload) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    EXPECT_THAT(leftovers(), Not(IsEmpty()));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedBetweenTwoBatches) {
    addMessages(600);
    beginSignedIn();
    EXPECT_EQ(nextWait(), 10);
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedBetweenTwoAttempts) {
    addMessages(1);
    options_.retryDelays = {5};
    with_.service.setAnswer(FakeService::ingestPath, 503);
    beginSignedIn();
    EXPECT_EQ(nextWait(), 5);
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItReadsTheLog) {
    with_.logStore.hold();
    beginSignedIn();
    EXPECT_TRUE(waitUntil([this] { return !with_.logStore.reads().empty(); }));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItSendsDiagnostics) {
    with_.service.setAnswer(FakeService::diagnosticsPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::diagnosticsPath));
    destroyAndExpectNoRemains();
}

TEST_F(AppModelEndTest, MayBeDestroyedAtEveryStepOfAScan) {
    addMessages(3);
    with_.storeSession();
    // Each run processes more events before the destruction. The worker's progress is not
    // controlled.
    std::size_t finished = 0;
    for (int events = 0; finished < 3; events += 1 + events / 20) {
        begin();
        for (int event = 0; event < events; ++event) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        }
        finished += scans();
        destroyAndExpectNoRemains();
    }
    EXPECT_EQ(finished, 3U);
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileItChecksThePermissions) {
    startSignedOut();
    const auto looking = model_->refreshPermissions();
    destroyAndExpectNoRemains();
    EXPECT_TRUE(looking.isReady());
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileTheUserSignsIn) {
    startSignedOut();
    const auto signingIn = model_->auth().signIn();
    EXPECT_TRUE(waitUntil([this] { return with_.browser.isWaiting(); }));
    destroyAndExpectNoRemains();
    EXPECT_TRUE(signingIn.isReady());
}

TEST_F(AppModelEndTest, MayBeDestroyedDuringATokenExchange) {
    with_.service.setAnswer(FakeService::customTokenPath, std::nullopt);
    with_.letTheUserSignIn();
    startSignedOut();
    const auto signingIn = model_->auth().signIn();
    EXPECT_TRUE(waitForRequest(FakeService::customTokenPath));
    destroyAndExpectNoRemains();
    EXPECT_TRUE(signingIn.isReady());
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileTheContactsQuestionIsOpen) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.addressBook.hold();
    startSignedOut();
    const auto asking = model_->requestContactsAccess();
    const auto askingAgain = model_->requestContactsAccess();
    destroyAndExpectNoRemains();
    EXPECT_TRUE(asking.isReady());
    EXPECT_TRUE(askingAgain.isReady());
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
}

TEST_F(AppModelEndTest, MayBeDestroyedWhileOneScanWaitsForAnother) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    const auto asking = model_->requestContactsAccess();
    processEvents();
    EXPECT_FALSE(asking.isReady());
    destroyAndExpectNoRemains();
    EXPECT_TRUE(asking.isReady());
}

TEST_F(AppModelEndTest, MayBeDestroyedDuringStop) {
    startSignedIn();
    model_->auth().signOut();
    const auto stopping = model_->stop();
    EXPECT_FALSE(stopping.isReady());
    model_.reset();
    EXPECT_TRUE(stopping.isReady());
    EXPECT_EQ(with_.clock.untilNextTimer(), std::nullopt);
}

TEST_F(AppModelEndTest, TheCoroutineThatAwaitsStopMayDestroyIt) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    runTask(stopAndDestroy(&model_));
    EXPECT_FALSE(model_);
    EXPECT_THAT(leftovers(), IsEmpty());
    processEvents();
}

} // namespace orvel::test
