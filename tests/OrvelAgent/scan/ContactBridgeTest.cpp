// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/ContactBridge.h"

#include "OrvelAgent/base/Worker.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeAddressBook.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using test::runTask;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using HintSet = ContactBridge::HintSet;
using Identity = ContactBridge::Identity;
using IdentityIndex = ContactBridge::IdentityIndex;
using Line = test::RecordingLogStore::Line;

Line contactsLine(LogLevel level, std::string message) {
    return {level, "contacts", std::move(message)};
}

ContactCard person(std::string givenName, std::string familyName) {
    ContactCard card;
    card.givenName = std::move(givenName);
    card.familyName = std::move(familyName);
    return card;
}

ContactCard withPhones(ContactCard card, std::vector<std::string> numbers) {
    card.phoneNumbers = std::move(numbers);
    return card;
}

ContactCard withEmails(ContactCard card, std::vector<std::string> addresses) {
    card.emailAddresses = std::move(addresses);
    return card;
}

class ContactBridgeTest : public testing::Test {
protected:
    ContactBridge::Expansion expand(HintSet hints) {
        return runTask(bridge_.expand(std::move(hints)));
    }

    IdentityIndex buildIndex() { return runTask(bridge_.buildIdentityIndex()); }

    /// The name of the only card in the index.
    std::optional<std::string> nameOf(ContactCard card) {
        addressBook_.cards = {withEmails(std::move(card), {"key@example.com"})};
        return buildIndex().at("key@example.com").name;
    }

    test::FakeAddressBook addressBook_;
    test::RecordingLogStore log_;
    Worker worker_;
    ContactBridge bridge_{addressBook_, worker_, log_};
};

} // namespace

TEST_F(ContactBridgeTest, NamesEveryAuthorizationStatus) {
    const auto nameOfStatus = [this](int status) {
        addressBook_.status = AddressBook::AuthorizationStatus{status};
        return bridge_.rawStatusName();
    };
    EXPECT_EQ(nameOfStatus(0), "notDetermined");
    EXPECT_EQ(nameOfStatus(1), "restricted");
    EXPECT_EQ(nameOfStatus(2), "denied");
    EXPECT_EQ(nameOfStatus(3), "authorized");
    EXPECT_EQ(nameOfStatus(4), "limited");
    EXPECT_EQ(nameOfStatus(7), "unknown(7)");
    EXPECT_EQ(nameOfStatus(-1), "unknown(-1)");
}

TEST_F(ContactBridgeTest, DerivesTheAvailabilityFromTheStatus) {
    using Availability = ContactBridge::Availability;
    const auto availabilityOfStatus = [this](AddressBook::AuthorizationStatus status) {
        addressBook_.status = status;
        return bridge_.availability();
    };
    EXPECT_EQ(
        availabilityOfStatus(AddressBook::AuthorizationStatus::Authorized), Availability::Granted);
    EXPECT_EQ(
        availabilityOfStatus(AddressBook::AuthorizationStatus::Limited), Availability::Granted);
    EXPECT_EQ(
        availabilityOfStatus(AddressBook::AuthorizationStatus::Restricted), Availability::Denied);
    EXPECT_EQ(availabilityOfStatus(AddressBook::AuthorizationStatus::Denied), Availability::Denied);
    EXPECT_EQ(
        availabilityOfStatus(AddressBook::AuthorizationStatus::NotDetermined),
        Availability::NotDetermined);
    EXPECT_EQ(
        availabilityOfStatus(AddressBook::AuthorizationStatus{7}), Availability::NotDetermined);
}

TEST_F(ContactBridgeTest, AsksWithoutADecisionAndReportsConsent) {
    addressBook_.status = AddressBook::AuthorizationStatus::NotDetermined;
    EXPECT_TRUE(runTask(bridge_.requestAccess()));
    EXPECT_EQ(addressBook_.questions, 1);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Info, "contacts access requested; status is notDetermined"),
            contactsLine(
                LogLevel::Default, "contacts request returned true; status is now authorized")));
}

TEST_F(ContactBridgeTest, AsksWithoutADecisionAndReportsRefusal) {
    addressBook_.status = AddressBook::AuthorizationStatus::NotDetermined;
    addressBook_.userAllows = false;
    EXPECT_FALSE(runTask(bridge_.requestAccess()));
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Info, "contacts access requested; status is notDetermined"),
            contactsLine(
                LogLevel::Default,
                "contacts request returned false; status is now notDetermined")));
}

TEST_F(ContactBridgeTest, AsksForAnUnknownStatus) {
    addressBook_.status = AddressBook::AuthorizationStatus{7};
    EXPECT_TRUE(runTask(bridge_.requestAccess()));
    EXPECT_EQ(addressBook_.questions, 1);
}

TEST_F(ContactBridgeTest, NeverAsksAfterADecision) {
    const auto requestUnder = [this](AddressBook::AuthorizationStatus status) {
        addressBook_.status = status;
        return runTask(bridge_.requestAccess());
    };
    EXPECT_TRUE(requestUnder(AddressBook::AuthorizationStatus::Authorized));
    EXPECT_TRUE(requestUnder(AddressBook::AuthorizationStatus::Limited));
    EXPECT_FALSE(requestUnder(AddressBook::AuthorizationStatus::Restricted));
    EXPECT_FALSE(requestUnder(AddressBook::AuthorizationStatus::Denied));
    EXPECT_EQ(addressBook_.questions, 0);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Info, "contacts access requested; status is authorized"),
            contactsLine(LogLevel::Info, "contacts access requested; status is limited"),
            contactsLine(LogLevel::Info, "contacts access requested; status is restricted"),
            contactsLine(LogLevel::Info, "contacts access requested; status is denied")));
}

TEST_F(ContactBridgeTest, WithoutHintsTheAddressBookIsNotRead) {
    addressBook_.cards = {withEmails({}, {"a@example.com"})};
    const auto expansion = expand({});
    EXPECT_THAT(expansion.hints, IsEmpty());
    EXPECT_EQ(expansion.added, 0);
    EXPECT_EQ(expansion.scanned, 0);
    EXPECT_THAT(addressBook_.enumerations, IsEmpty());
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(contactsLine(
            LogLevel::Default, "address book not consulted; status authorized, 0 hints")));
}

TEST_F(ContactBridgeTest, WithoutAccessTheHintsAreUnchanged) {
    addressBook_.status = AddressBook::AuthorizationStatus::Denied;
    addressBook_.cards = {withEmails({}, {"a@example.com", "b@example.com"})};
    const auto expansion = expand({"a@example.com", "4155550134"});
    EXPECT_THAT(expansion.hints, UnorderedElementsAre("a@example.com", "4155550134"));
    EXPECT_EQ(expansion.added, 0);
    EXPECT_EQ(expansion.scanned, 0);
    EXPECT_THAT(addressBook_.enumerations, IsEmpty());
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Default, "address book not consulted; status denied, 2 hints")));
}

TEST_F(ContactBridgeTest, AKnownEmailAddsTheOtherIdentifiersOfItsCard) {
    addressBook_.cards = {
        withPhones(
            withEmails({}, {"a@example.com", "work@example.com"}),
            {"+1 (415) 555-0134", "+44 20 7946 0958"}),
        withPhones({}, {"+1 415 555 0199"})};
    const auto expansion = expand({"a@example.com"});
    EXPECT_THAT(
        expansion.hints,
        UnorderedElementsAre("a@example.com", "work@example.com", "4155550134", "442079460958"));
    EXPECT_EQ(expansion.added, 3);
    EXPECT_EQ(expansion.scanned, 2);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(contactsLine(
            LogLevel::Default,
            "address book: 2 contacts scanned, 3 identifiers added to 1 from the graph")));
}

TEST_F(ContactBridgeTest, AKnownPhoneAddsTheOtherIdentifiersOfItsCard) {
    addressBook_.cards = {
        withPhones(withEmails({}, {"a@example.com"}), {"+1 (415) 555-0134", "+1 415 555 0199"})};
    EXPECT_THAT(
        expand({"4155550134"}).hints,
        UnorderedElementsAre("4155550134", "a@example.com", "4155550199"));
}

TEST_F(ContactBridgeTest, ACardIsComparedWithTheGivenHintsOnly) {
    addressBook_.cards = {
        withEmails({}, {"a@example.com", "shared@example.com"}),
        withEmails({}, {"shared@example.com", "stranger@example.com"})};
    EXPECT_THAT(
        expand({"a@example.com"}).hints,
        UnorderedElementsAre("a@example.com", "shared@example.com"));
}

TEST_F(ContactBridgeTest, IdentifiersWithoutAHintAreDropped) {
    addressBook_.cards = {
        withPhones(withEmails({}, {"a@example.com", " \n", ""}), {"55-0134", "front desk", ""})};
    const auto expansion = expand({"a@example.com"});
    EXPECT_THAT(expansion.hints, UnorderedElementsAre("a@example.com"));
    EXPECT_EQ(expansion.added, 0);
    EXPECT_EQ(expansion.scanned, 1);
}

TEST_F(ContactBridgeTest, EmailsAreTrimmedAndLowerCased) {
    addressBook_.cards = {withEmails({}, {" \tJane.DOE@Example.COM\n", "ÄRGER@example.com"})};
    EXPECT_THAT(
        expand({"jane.doe@example.com"}).hints,
        UnorderedElementsAre("jane.doe@example.com", "ärger@example.com"));
}

TEST_F(ContactBridgeTest, APhoneNumberStaysAPhoneNumberEvenWithAnAtSign) {
    addressBook_.cards = {withPhones({}, {"4155550134@example.com"})};
    EXPECT_THAT(expand({"4155550134"}).hints, UnorderedElementsAre("4155550134"));
    EXPECT_EQ(expand({"4155550134@example.com"}).added, 0);
}

TEST_F(ContactBridgeTest, AReadErrorLeavesTheHintsUnchanged) {
    addressBook_.readError = tavrin::PlatformError("test", 5, "The disk is gone.");
    const auto expansion = expand({"a@example.com"});
    EXPECT_THAT(expansion.hints, UnorderedElementsAre("a@example.com"));
    EXPECT_EQ(expansion.added, 0);
    EXPECT_EQ(expansion.scanned, 0);
    EXPECT_TRUE(expansion.isUnreadable);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Default, "could not read the address book: The disk is gone.")));
}

TEST_F(ContactBridgeTest, ABookThatCannotBeReadIsReportedAndTheOtherCardsAreUsed) {
    addressBook_.cards = {
        withPhones(withEmails(person("Jane", ""), {"a@example.com"}), {"4155550134"})};
    addressBook_.bookError = tavrin::PlatformError("test", 5, "The disk is gone.");
    const auto expansion = expand({"a@example.com"});
    EXPECT_TRUE(expansion.isUnreadable);
    EXPECT_THAT(expansion.hints, UnorderedElementsAre("a@example.com", "4155550134"));
    EXPECT_EQ(expansion.added, 1);
    EXPECT_EQ(expansion.scanned, 1);
    EXPECT_EQ(buildIndex().size(), 2U);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Default, "could not read the address book: The disk is gone."),
            contactsLine(
                LogLevel::Default,
                "address book: 1 contacts scanned, 1 identifiers added to 1 from the graph"),
            contactsLine(LogLevel::Error, "the identity index is not complete: The disk is gone."),
            contactsLine(LogLevel::Default, "address-book index: 2 handle->identity entries")));
}

TEST_F(ContactBridgeTest, LimitedAccessCountsAsAccess) {
    addressBook_.status = AddressBook::AuthorizationStatus::Limited;
    addressBook_.cards = {withPhones(withEmails({}, {"a@example.com"}), {"4155550134"})};
    EXPECT_EQ(expand({"a@example.com"}).added, 1);
    EXPECT_EQ(buildIndex().size(), 2U);
}

TEST_F(ContactBridgeTest, ReadsOnlyTheFieldsItNeeds) {
    expand({"a@example.com"});
    buildIndex();
    EXPECT_THAT(
        addressBook_.enumerations,
        ElementsAre(AddressBook::Fields::Identifiers, AddressBook::Fields::IdentifiersAndNames));
}

TEST_F(ContactBridgeTest, IndexesACardUnderEachOfItsIdentifiers) {
    addressBook_.cards = {withPhones(
        withEmails(person("Jane", "Doe"), {" Jane@Example.com", "", "doe@example.com"}),
        {"+1 (415) 555-0134", "12"})};
    const Identity jane{"Jane Doe", {"jane@example.com", "doe@example.com"}};
    EXPECT_EQ(
        buildIndex(),
        (IdentityIndex{
            {"4155550134", jane}, {"jane@example.com", jane}, {"doe@example.com", jane}}));
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Default, "address-book index: 3 handle->identity entries")));
}

TEST_F(ContactBridgeTest, ALaterCardReplacesAnEarlierOneUnderTheSameIdentifier) {
    addressBook_.cards = {
        withPhones(withEmails(person("First", ""), {"first@example.com"}), {"4155550134"}),
        withPhones(person("Second", ""), {"+1 415-555-0134"})};
    const IdentityIndex index = buildIndex();
    EXPECT_EQ(index.at("4155550134"), (Identity{"Second", {}}));
    EXPECT_EQ(index.at("first@example.com"), (Identity{"First", {"first@example.com"}}));
    EXPECT_EQ(index.size(), 2U);
}

TEST_F(ContactBridgeTest, ALaterCardReplacesAnEarlierOneUnderTheSameEmail) {
    addressBook_.cards = {
        withEmails(person("First", ""), {"shared@example.com"}),
        withEmails(person("Second", ""), {"Shared@example.com"})};
    EXPECT_EQ(
        buildIndex(),
        (IdentityIndex{{"shared@example.com", Identity{"Second", {"shared@example.com"}}}}));
}

TEST_F(ContactBridgeTest, JoinsTheNamesThatAreThere) {
    EXPECT_EQ(nameOf(person("Jane", "Doe")), "Jane Doe");
    EXPECT_EQ(nameOf(person("Jane", "")), "Jane");
    EXPECT_EQ(nameOf(person("", "Doe")), "Doe");
}

TEST_F(ContactBridgeTest, AnOrganizationNamesOnlyACardWithoutAName) {
    ContactCard card = person("Jane", "");
    card.organizationName = "Example Ltd";
    EXPECT_EQ(nameOf(card), "Jane");
    card.givenName.clear();
    EXPECT_EQ(nameOf(card), "Example Ltd");
}

TEST_F(ContactBridgeTest, ACardWithoutANameStillHasItsEmails) {
    addressBook_.cards = {withPhones(withEmails({}, {"a@example.com"}), {"4155550134"})};
    EXPECT_EQ(buildIndex().at("4155550134"), (Identity{std::nullopt, {"a@example.com"}}));
}

TEST_F(ContactBridgeTest, WithoutAccessTheIndexIsEmptyAndNothingIsRead) {
    addressBook_.status = AddressBook::AuthorizationStatus::NotDetermined;
    addressBook_.cards = {withEmails({}, {"a@example.com"})};
    EXPECT_THAT(buildIndex(), IsEmpty());
    EXPECT_THAT(addressBook_.enumerations, IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ContactBridgeTest, AReadErrorResultsInAnEmptyIndex) {
    addressBook_.cards = {withEmails({}, {"a@example.com"})};
    addressBook_.readError = tavrin::PlatformError("test", 5, "The disk is gone.");
    EXPECT_THAT(buildIndex(), IsEmpty());
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            contactsLine(LogLevel::Error, "could not build identity index: The disk is gone.")));
}

TEST_F(ContactBridgeTest, FindsTheIdentityOfAHandleInAnyNotation) {
    const Identity jane{"Jane", {"jane@example.com"}};
    const IdentityIndex index{{"4155550134", jane}, {"jane@example.com", jane}};
    EXPECT_EQ(ContactBridge::identity("+1 (415) 555-0134", index), jane);
    EXPECT_EQ(ContactBridge::identity(" JANE@example.com\n", index), jane);
    EXPECT_EQ(ContactBridge::identity("4155550199", index), std::nullopt);
}

TEST_F(ContactBridgeTest, AHandleWithoutAHintHasNoIdentity) {
    const IdentityIndex index{{"550134", Identity{"Short", {}}}, {"", Identity{"Empty", {}}}};
    EXPECT_EQ(ContactBridge::identity("55-0134", index), std::nullopt);
    EXPECT_EQ(ContactBridge::identity("", index), std::nullopt);
}

TEST_F(ContactBridgeTest, CancellingEndsEveryWaitForTheUserAndTheAddressBookAtOnce) {
    addressBook_.cards = {withEmails({}, {"a@example.com"})};
    const auto expectEnds = [](auto start) {
        tavrin::CancellationSource cancellation;
        auto task = start(cancellation.token());
        EXPECT_FALSE(task.isReady());
        cancellation.cancel();
        EXPECT_TRUE(task.isReady());
        EXPECT_THROW(runTask(std::move(task)), tavrin::TaskCancelled);
        // A call with a cancelled token also throws at once.
        EXPECT_THROW(runTask(start(cancellation.token())), tavrin::TaskCancelled);
    };
    expectEnds([this](auto token) { return bridge_.expand({"a@example.com"}, token); });
    expectEnds([this](auto token) { return bridge_.buildIdentityIndex(token); });
    addressBook_.status = AddressBook::AuthorizationStatus::NotDetermined;
    expectEnds([this](auto token) { return bridge_.requestAccess(token); });
    test::processEvents();
}

TEST_F(ContactBridgeTest, CancellingEndsTheWorkOnTheCards) {
    addressBook_.cards = {withEmails({}, {"a@example.com"})};
    const auto expectEnds = [this](auto start) {
        tavrin::CancellationSource cancellation;
        auto task = start(cancellation.token());
        // Hold the worker until the cards are there and the token is cancelled.
        std::promise<void> cancelled;
        auto hold = worker_.run([held = cancelled.get_future().share()] { held.wait(); });
        test::processEvents();
        EXPECT_FALSE(task.isReady());
        cancellation.cancel();
        cancelled.set_value();
        EXPECT_THROW(runTask(std::move(task)), tavrin::TaskCancelled);
        runTask(std::move(hold));
    };
    expectEnds([this](auto token) { return bridge_.expand({"a@example.com"}, token); });
    expectEnds([this](auto token) { return bridge_.buildIdentityIndex(token); });
}

} // namespace orvel
