// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace orvel::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Availability = ContactBridge::Availability;
using namespace std::chrono_literals;

class AppModelPermissionsTest : public AppModelFixture {
protected:
    [[nodiscard]] std::set<std::string> sentGuids() const {
        const auto& guids = with_.service.guids();
        return {guids.begin(), guids.end()};
    }
};

} // namespace

TEST_F(AppModelPermissionsTest, ARecheckDetectsGrantedAndRevokedFullDiskAccess) {
    options_.sourcePath = (directory_ / "later.db").string();
    startSignedOut();
    runTask(model_->refreshPermissions());
    EXPECT_FALSE(model_->hasFullDiskAccess());
    const int changes = changes_;
    const MessagesDatabaseBuilder later(directory_ / "later.db");
    runTask(model_->refreshPermissions());
    EXPECT_TRUE(model_->hasFullDiskAccess());
    EXPECT_EQ(changes_, changes + 1);
    runTask(model_->refreshPermissions());
    EXPECT_EQ(changes_, changes + 1);
    std::filesystem::remove(directory_ / "later.db");
    runTask(model_->refreshPermissions());
    EXPECT_FALSE(model_->hasFullDiskAccess());
}

TEST_F(AppModelPermissionsTest, TheFirstCheckRunsOnTheWorkerAndUntilThenNothingIsReported) {
    options_.sourcePath = (directory_ / "missing.db").string();
    with_.storeSession();
    begin();
    EXPECT_TRUE(model_->hasFullDiskAccess());
    EXPECT_TRUE(waitUntil([this] { return model_->auth().isSignedIn(); }));
    const bool isUnknown = model_->hasFullDiskAccess();
    EXPECT_EQ(model_->needsAttention(), !isUnknown);
    EXPECT_TRUE(waitUntil([this] { return !model_->hasFullDiskAccess(); }));
    EXPECT_TRUE(model_->needsAttention());
    EXPECT_EQ(model_->blockedReason(), "Full Disk Access is required to read Messages.");
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    EXPECT_EQ(scans(), 0U);
}

TEST_F(AppModelPermissionsTest, ARecheckDetectsContactsAccess) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    startSignedOut();
    EXPECT_EQ(model_->contactsAvailability(), Availability::NotDetermined);
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    const int changes = changes_;
    runTask(model_->refreshPermissions());
    EXPECT_EQ(model_->contactsAvailability(), Availability::Denied);
    EXPECT_EQ(changes_, changes + 1);
}

TEST_F(AppModelPermissionsTest, UnderADebuggerItDoesNotRequestContacts) {
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

TEST_F(AppModelPermissionsTest, TheContactsQuestionOpensInFront) {
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

TEST_F(AppModelPermissionsTest, ASecondContactsRequestRaisesTheOpenQuestion) {
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

TEST_F(AppModelPermissionsTest, TwoContactsRequestsWithOneAnswerStartOneScan) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    startSignedIn();
    const auto first = model_->requestContactsAccess();
    runTask(model_->requestContactsAccess());
    EXPECT_TRUE(waitUntil([&] { return first.isReady(); }));
    EXPECT_EQ(scans(), 2U);
}

TEST_F(AppModelPermissionsTest, CanRequestContactsAgainAfterARefusal) {
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

TEST_F(AppModelPermissionsTest, CanRequestContactsAgainAfterAnError) {
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

TEST_F(AppModelPermissionsTest, GrantedContactsRescanAllConversationsAtOnce) {
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

TEST_F(AppModelPermissionsTest, ContactsGrantedDuringAScanRescanAllConversations) {
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
    // The service does not know this address, so the message was skipped.
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
    // The wait after the first scan is still running.
    EXPECT_EQ(nextWait(), 890);
}

TEST_F(AppModelPermissionsTest, ContactsGrantedDuringAScanDoNotStartASecondOneBesideIt) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.service.setAnswer(FakeService::digestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::digestPath));
    const auto request = model_->requestContactsAccess();
    EXPECT_TRUE(
        waitUntil([this] { return model_->contactsAvailability() == Availability::Granted; }));
    processEvents();
    EXPECT_EQ(with_.service.requestCount(FakeService::digestPath), 1U);
    model_.reset();
}

TEST_F(AppModelPermissionsTest, LogsThatAnotherProcessScansInPlaceOfDeletingProgress) {
    startSignedIn();
    const auto lock = with_.userDefaults.tryLock();
    runTask(model_->requestContactsAccess());
    EXPECT_THAT(
        logged(LogLevel::Error),
        Contains("could not forget the progress of earlier scans: Another scan is running."));
    EXPECT_EQ(scans(), 2U);
}

TEST_F(AppModelPermissionsTest, LogsThatProgressCannotBeDeletedAndStillScans) {
    startSignedIn();
    with_.userDefaults.setFailsWrites(true);
    runTask(model_->requestContactsAccess());
    EXPECT_THAT(
        logged(LogLevel::Error),
        Contains(HasSubstr("could not forget the progress of earlier scans: ")));
    EXPECT_EQ(scans(), 2U);
    EXPECT_EQ(model_->settingsError(), std::nullopt);
}

} // namespace orvel::test
