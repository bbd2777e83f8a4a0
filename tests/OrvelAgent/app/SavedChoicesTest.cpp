// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/SavedChoices.h"

#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;
using testing::Contains;
using testing::ElementsAre;

class SavedChoicesTest : public AppModelFixture {};

} // namespace

TEST_F(SavedChoicesTest, ReadsTheUsersChoices) {
    with_.userDefaults.set("collection.mode", "metadataOnly");
    with_.userDefaults.set("collection.scope", "allThreads");
    with_.userDefaults.set("startAtLogin", true);
    begin();
    EXPECT_EQ(model_->mode(), CollectionMode::MetadataOnly);
    EXPECT_EQ(model_->scope(), ThreadScope::AllThreads);
    EXPECT_TRUE(model_->startAtLogin());
}

TEST_F(SavedChoicesTest, ChoicesApplyAtOnceAndAreSaved) {
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
    EXPECT_EQ(storedValue<std::string>(with_.userDefaults, "collection.mode"), "metadataOnly");
    EXPECT_EQ(storedValue<std::string>(with_.userDefaults, "collection.scope"), "allThreads");
    EXPECT_EQ(storedValue<bool>(with_.userDefaults, "startAtLogin"), true);
}

TEST_F(SavedChoicesTest, SavesTheLastOfManyChoices) {
    startSignedOut();
    for (int i = 0; i < 50; ++i) {
        model_->setScope(ThreadScope::AllThreads);
        model_->setScope(ThreadScope::KnownContactsOnly);
    }
    model_.reset();
    EXPECT_EQ(
        storedValue<std::string>(with_.userDefaults, "collection.scope"), "knownContactsOnly");
}

TEST_F(SavedChoicesTest, AChoiceThatCannotBeSavedAppliesAndIsReported) {
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

TEST_F(SavedChoicesTest, EveryStartAtLoginChoiceUpdatesTheLoginItem) {
    startSignedOut();
    model_->setStartAtLogin(true);
    model_->setStartAtLogin(true);
    model_->setStartAtLogin(false);
    EXPECT_THAT(with_.loginItem.changes, ElementsAre(true, true, false));
}

TEST_F(SavedChoicesTest, TheLoginItemIsRepairedAtTheStartWhileTheSwitchIsOn) {
    begin();
    EXPECT_EQ(with_.loginItem.repairs, 0);
    model_.reset();
    with_.userDefaults.set("startAtLogin", true);
    with_.loginItem.error = tavrin::PlatformError("test", 1, "No such folder.");
    begin();
    EXPECT_EQ(with_.loginItem.repairs, 1);
    EXPECT_THAT(with_.loginItem.changes, ElementsAre());
    EXPECT_TRUE(waitUntil([this] {
        return testing::Value(
            logged(LogLevel::Info), Contains("could not change the login item: No such folder."));
    }));
}

TEST_F(SavedChoicesTest, ALoginItemThatCannotBeChangedIsNoError) {
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

TEST_F(SavedChoicesTest, SavesTheLastChoiceBeforeDestruction) {
    startSignedOut();
    model_->setMode(CollectionMode::MetadataOnly);
    model_->setStartAtLogin(true);
    model_.reset();
    EXPECT_EQ(storedValue<std::string>(with_.userDefaults, "collection.mode"), "metadataOnly");
    EXPECT_EQ(storedValue<bool>(with_.userDefaults, "startAtLogin"), true);
}

} // namespace orvel::test
