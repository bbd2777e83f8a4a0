// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/contacts/EvolutionAddressBook.h"

#include "tests/platform/AddressBookCalls.h"
#include "tests/platform/linux/contacts/EvolutionDesktop.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

namespace {

using test::cardsOf;
using test::enumerate;
using test::errorOf;
using test::EvolutionDesktop;
using test::OtherBus;
using test::requestAccess;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using Fields = AddressBook::Fields;

class EvolutionAddressBookCase : public testing::Test {
protected:
    /// Call before the address book is created.
    void grantAccess() { defaults_.set("contacts.access", "granted"); }

    EvolutionAddressBook& addressBook() {
        if (!addressBook_) {
            addressBook_ = std::make_unique<EvolutionAddressBook>(
                defaults_, log_, [this](std::function<void(bool)> answer) {
                    ++questions_;
                    answer_ = std::move(answer);
                    if (onQuestion_) {
                        onQuestion_();
                    }
                });
        }
        return *addressBook_;
    }

    /// The given names of all cards.
    std::vector<std::string> givenNames() {
        std::vector<std::string> names;
        for (const ContactCard& card : cardsOf(addressBook(), Fields::IdentifiersAndNames)) {
            names.push_back(card.givenName);
        }
        return names;
    }

    std::vector<std::string> logged() const {
        std::vector<std::string> messages;
        for (const auto& line : log_.lines()) {
            EXPECT_EQ(line.level, LogLevel::Error);
            EXPECT_EQ(line.category, "contacts");
            messages.push_back(line.message);
        }
        return messages;
    }

    test::InMemoryUserDefaults defaults_;
    test::RecordingLogStore log_;
    int questions_ = 0;
    /// Answers the question on screen.
    std::function<void(bool)> answer_;
    std::function<void()> onQuestion_;
    std::unique_ptr<EvolutionAddressBook> addressBook_;
};

class EvolutionAddressBookTest : public EvolutionAddressBookCase {
protected:
    EvolutionDesktop desktop_;
};

class EvolutionAddressBookOnOtherBusTest : public EvolutionAddressBookCase,
                                           public testing::WithParamInterface<OtherBus::Kind> {
protected:
    /// Makes the service available, as if it had started late.
    void returnToTheDesktop() { bus_.reset(); }

    std::optional<OtherBus> bus_{GetParam()};
};

std::string vcard(const std::string& lines) {
    return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + lines + "END:VCARD\r\n";
}

} // namespace

TEST_F(EvolutionAddressBookTest, StoresTheGrant) {
    onQuestion_ = [this] {
        answer_(true);
    };
    ASSERT_TRUE(requestAccess(addressBook()));
    EXPECT_EQ(storedValue<std::string>(defaults_, "contacts.access"), "granted");
    addressBook_.reset();
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
}

TEST_F(EvolutionAddressBookTest, DoesNotStoreARefusal) {
    onQuestion_ = [this] {
        answer_(false);
    };
    ASSERT_FALSE(requestAccess(addressBook()));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
    EXPECT_FALSE(defaults_.contains("contacts.access"));
}

TEST_F(EvolutionAddressBookTest, ARequestWhileTheQuestionIsOpenBringsItToTheFront) {
    std::vector<bool> answers;
    const auto request = [&] {
        addressBook().requestAccess([&](bool isGranted) { answers.push_back(isGranted); });
    };
    request();
    ASSERT_TRUE(test::waitUntil([this] { return questions_ == 1; }));
    const auto first = answer_;
    request();
    ASSERT_TRUE(test::waitUntil([this] { return questions_ == 2; }));
    first(false);
    EXPECT_THAT(answers, ElementsAre(false, false));
    // The question was answered: its second answer is ignored.
    answer_(true);
    test::processEvents();
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
    EXPECT_EQ(answers.size(), 2U);
}

TEST_F(EvolutionAddressBookTest, AnImmediateAnswerDoesNotCompleteARequestBeforeItReturns) {
    std::vector<bool> answers;
    const auto request = [&] {
        addressBook().requestAccess([&](bool isGranted) { answers.push_back(isGranted); });
    };
    request();
    ASSERT_TRUE(test::waitUntil([this] { return questions_ == 1; }));
    onQuestion_ = [this] {
        answer_(false);
    };
    request();
    EXPECT_THAT(answers, IsEmpty());
    ASSERT_TRUE(test::waitUntil([&] { return !answers.empty(); }));
    EXPECT_THAT(answers, ElementsAre(false, false));
}

TEST_F(EvolutionAddressBookTest, AQuestionAnsweredBeforeItComesToTheFrontIsNotAskedAgain) {
    int answers = 0;
    const auto request = [&] {
        addressBook().requestAccess([&](bool) { ++answers; });
    };
    request();
    ASSERT_TRUE(test::waitUntil([this] { return questions_ == 1; }));
    request();
    answer_(false);
    EXPECT_EQ(answers, 2);
    test::processEvents();
    EXPECT_EQ(questions_, 1);
}

TEST_F(EvolutionAddressBookTest, IgnoresARefusalStoredByAnEarlierVersion) {
    defaults_.set("contacts.access", "denied");
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
}

TEST_F(EvolutionAddressBookTest, IgnoresAnUnknownStoredAnswer) {
    defaults_.set("contacts.access", "perhaps");
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
}

TEST_F(EvolutionAddressBookTest, ConsentThatCannotBeStoredGrantsNoAccess) {
    defaults_.setFailsWrites(true);
    onQuestion_ = [this] {
        answer_(true);
    };
    EXPECT_FALSE(requestAccess(addressBook()));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("Could not write the settings")));
}

TEST_F(EvolutionAddressBookTest, OnlyTheFirstAnswerCounts) {
    onQuestion_ = [this] {
        answer_(false);
        answer_(true);
    };
    EXPECT_FALSE(requestAccess(addressBook()));
    answer_(true);
    test::processEvents();
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
}

TEST_F(EvolutionAddressBookTest, IgnoresAnAnswerAfterItsDestruction) {
    onQuestion_ = [this] {
        addressBook_.reset();
    };
    bool isAnswered = false;
    addressBook().requestAccess([&isAnswered](bool) { isAnswered = true; });
    while (addressBook_) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    answer_(true);
    test::processEvents();
    EXPECT_FALSE(isAnswered);
    EXPECT_FALSE(defaults_.contains("contacts.access"));
}

TEST_F(EvolutionAddressBookTest, StaysUndecidedIfTheUserCannotBeAsked) {
    addressBook_ = std::make_unique<EvolutionAddressBook>(defaults_, log_, nullptr);
    EXPECT_FALSE(requestAccess(addressBook()));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
}

TEST_F(EvolutionAddressBookTest, UsesTheFormattedNameOfACardWithoutOtherNames) {
    grantAccess();
    desktop_.addVCard(vcard("FN:Grandma\r\nTEL:+1 415 555 0134\r\n"));
    EXPECT_THAT(givenNames(), ElementsAre("Grandma"));
}

TEST_F(EvolutionAddressBookTest, AnOrganizationsFormattedNameIsNotAGivenName) {
    grantAccess();
    desktop_.addVCard(vcard("FN:Example Ltd\r\nORG:Example Ltd;Sales\r\n"));
    EXPECT_THAT(
        cardsOf(addressBook(), Fields::IdentifiersAndNames),
        ElementsAre(ContactCard{"", "", "Example Ltd", {}, {}}));
}

TEST_F(EvolutionAddressBookTest, LeavesOutListsOfPeople) {
    grantAccess();
    desktop_.addVCard(vcard("FN:Family\r\nX-EVOLUTION-LIST:TRUE\r\nEMAIL:a@example.com\r\n"));
    desktop_.addVCard(vcard("FN:Jane\r\nN:;Jane;;;\r\n"));
    EXPECT_THAT(givenNames(), ElementsAre("Jane"));
}

TEST_F(EvolutionAddressBookTest, RepairsIllFormedText) {
    grantAccess();
    desktop_.addVCard("BEGIN:VCARD\r\nVERSION:2.1\r\n"
                      "N;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:;Jan=FFe;;;\r\nEND:VCARD\r\n");
    EXPECT_THAT(givenNames(), ElementsAre("Jan\uFFFDe"));
}

TEST_F(EvolutionAddressBookTest, ReadsEveryEnabledBook) {
    grantAccess();
    desktop_.addVCard(vcard("FN:Jane\r\nN:;Jane;;;\r\n"));
    const std::string work = desktop_.addBook("Work");
    desktop_.addVCardTo(work, vcard("FN:Joe\r\nN:;Joe;;;\r\n"));
    const std::string old = desktop_.addBook("Old");
    desktop_.addVCardTo(old, vcard("FN:Jim\r\nN:;Jim;;;\r\n"));
    desktop_.setEnabled(old, false);
    EXPECT_THAT(givenNames(), UnorderedElementsAre("Jane", "Joe"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(EvolutionAddressBookTest, AnUnreadableBookIsAnErrorBesideTheOthersAndLoggedOnce) {
    grantAccess();
    desktop_.addVCard(vcard("FN:Jane\r\nN:;Jane;;;\r\n"));
    const std::string broken = desktop_.addBook("owner@example.com", "nonexistent");
    for (int i = 0; i < 2; ++i) {
        const AddressBook::Cards read = enumerate(addressBook(), Fields::IdentifiersAndNames);
        EXPECT_THAT(read.cards, ElementsAre(ContactCard{"Jane", "", "", {}, {}}));
        ASSERT_TRUE(read.error);
        EXPECT_THAT(read.error->what(), HasSubstr("Could not read an address book: "));
    }
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("Could not read an address book: ")));
    EXPECT_THAT(logged(), ElementsAre(HasSubstr(broken)));
    EXPECT_THAT(logged(), ElementsAre(Not(HasSubstr("owner@example.com"))));
}

TEST_F(EvolutionAddressBookTest, FailsWhenNoBookCanBeRead) {
    grantAccess();
    desktop_.addBook("Broken", "nonexistent");
    desktop_.setEnabled(EvolutionDesktop::personalBook, false);
    EXPECT_THAT(
        errorOf(addressBook(), Fields::Identifiers), HasSubstr("Could not read an address book"));
    desktop_.setEnabled(EvolutionDesktop::personalBook, true);
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
}

TEST_F(EvolutionAddressBookTest, DestroyingItDropsTheCompletions) {
    grantAccess();
    bool isAnswered = false;
    for (int i = 0; i < 3; ++i) {
        addressBook().enumerateCards(
            Fields::Identifiers, [&isAnswered](const AddressBook::Cards&) { isAnswered = true; });
    }
    addressBook_.reset();
    // If they were to complete, they would do so before this later call.
    givenNames();
    test::processEvents();
    EXPECT_FALSE(isAnswered);
}

TEST_F(EvolutionAddressBookTest, ACompletionMayDestroyIt) {
    grantAccess();
    int answers = 0;
    for (int i = 0; i < 2; ++i) {
        addressBook().enumerateCards(
            Fields::Identifiers, [this, &answers](const AddressBook::Cards&) {
                ++answers;
                addressBook_.reset();
            });
    }
    while (addressBook_) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    // If the second were to complete, it would do so before this later call.
    givenNames();
    test::processEvents();
    EXPECT_EQ(answers, 1);
}

INSTANTIATE_TEST_SUITE_P(
    ,
    EvolutionAddressBookOnOtherBusTest,
    testing::Values(OtherBus::Kind::Nowhere, OtherBus::Kind::WithoutServices),
    [](const auto& kind) {
        return kind.param == OtherBus::Kind::Nowhere ? "WithoutBus" : "WithoutService";
    });

TEST_P(EvolutionAddressBookOnOtherBusTest, DeniesAccessAndLogsTheReasonOnce) {
    EXPECT_FALSE(requestAccess(addressBook()));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Restricted);
    // Wait for the check that this started: the next test uses another bus.
    EXPECT_FALSE(requestAccess(addressBook()));
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("Could not reach the desktop's address book: ")));
}

TEST_P(EvolutionAddressBookOnOtherBusTest, DoesNotAskTheUser) {
    requestAccess(addressBook());
    EXPECT_EQ(questions_, 0);
    EXPECT_FALSE(defaults_.contains("contacts.access"));
}

TEST_P(EvolutionAddressBookOnOtherBusTest, EarlierConsentHasNoEffect) {
    grantAccess();
    EXPECT_THAT(
        errorOf(addressBook(), Fields::Identifiers),
        HasSubstr("Could not reach the desktop's address book: "));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Restricted);
    EXPECT_FALSE(requestAccess(addressBook()));
    EXPECT_EQ(logged().size(), 1U);
}

TEST_P(EvolutionAddressBookOnOtherBusTest, TheStatusDetectsAServiceThatStartsLate) {
    grantAccess();
    EXPECT_NE(errorOf(addressBook(), Fields::Identifiers), "");
    returnToTheDesktop();
    EXPECT_TRUE(test::waitUntil([this] {
        return addressBook().authorizationStatus() == AddressBook::AuthorizationStatus::Authorized;
    }));
}

TEST_P(EvolutionAddressBookOnOtherBusTest, AnEnumerationChecksAgain) {
    grantAccess();
    EXPECT_NE(errorOf(addressBook(), Fields::Identifiers), "");
    returnToTheDesktop();
    EXPECT_EQ(errorOf(addressBook(), Fields::Identifiers), "");
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
}

TEST_P(EvolutionAddressBookOnOtherBusTest, ARequestChecksAgain) {
    onQuestion_ = [this] {
        answer_(true);
    };
    EXPECT_FALSE(requestAccess(addressBook()));
    returnToTheDesktop();
    EXPECT_TRUE(requestAccess(addressBook()));
    EXPECT_EQ(questions_, 1);
}

} // namespace orvel
