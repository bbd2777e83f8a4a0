// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/AppModel.h"

#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;

class AppModelTest : public AppModelFixture {};

} // namespace

TEST_F(AppModelTest, EmitsChangedWhenAServiceChanges) {
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

TEST_F(AppModelTest, TheCopyOfAKilledProcessIsRemovedWithoutAScan) {
    const auto copy = temporary_ / "tavrin-chatdb-6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F14";
    std::filesystem::create_directory(copy);
    std::ofstream(copy / "chat.db") << "messages";
    startSignedOut();
    EXPECT_TRUE(waitUntil([&] { return !std::filesystem::exists(copy); }));
}

TEST_F(AppModelTest, ARescanSendsAllMessagesInTheNextScan) {
    addMessages(2);
    startSignedIn();
    runTask(model_->rescanFromBeginning());
    EXPECT_EQ(scans(), 1U);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 4U);
}

TEST_F(AppModelTest, ReportsThatARescanCannotBePrepared) {
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

TEST_F(AppModelTest, ReportsThatARescanMustWaitForTheScanOfAnotherProcess) {
    startSignedIn();
    const auto lock = with_.userDefaults.tryLock();
    runTask(model_->rescanFromBeginning());
    EXPECT_EQ(
        model_->rescanError(), "The re-scan could not be prepared (Another scan is running.).");
}

TEST_F(AppModelTest, AChoiceAndARescanReportSeparateErrors) {
    startSignedIn();
    with_.userDefaults.setFailsWrites(true);
    model_->setMode(CollectionMode::MetadataOnly);
    runTask(model_->rescanFromBeginning());
    EXPECT_TRUE(waitUntil([this] { return model_->settingsError().has_value(); }));
    const auto settingsError = model_->settingsError();
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

TEST_F(AppModelTest, SchedulesTheRelaunchBeforeItTerminates) {
    startSignedOut();
    model_->relaunch();
    EXPECT_EQ(with_.processControl.relaunches, 1);
    EXPECT_EQ(with_.processControl.terminations, 1);
}

TEST_F(AppModelTest, TheLogCoversTheApplicationAndTheUpdater) {
    begin();
    EXPECT_EQ(model_->logSubsystems().application, "app.test");
    EXPECT_EQ(model_->logSubsystems().updater, "org.sparkle-project.Sparkle");
}

} // namespace orvel::test
