// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every address book: the fake and this system's.
#include "platform/AddressBook.h"

#include "tests/platform/AddressBookCalls.h"
#include "tests/platform/RealAddressBook.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeAddressBook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace orvel {

namespace {

using test::cardsOf;
using test::enumerate;
using test::errorOf;
using test::requestAccess;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;
using Fields = AddressBook::Fields;

class FakeSubject final : public test::AddressBookSubject {
public:
    FakeSubject() { addressBook_.status = AddressBook::AuthorizationStatus::NotDetermined; }

    AddressBook& addressBook() override { return addressBook_; }
    void add(const std::vector<ContactCard>& cards) override { addressBook_.cards = cards; }
    void setUserAllows(bool userAllows) override { addressBook_.userAllows = userAllows; }
    [[nodiscard]] int questions() const override { return addressBook_.questions; }
    void breakPart() override {
        addressBook_.bookError.emplace("FakeAddressBook", 1, "A book cannot be read.");
    }
    void setBroken(bool isBroken) override {
        addressBook_.readError.reset();
        if (isBroken) {
            addressBook_.readError.emplace("FakeAddressBook", 2, "The service is missing.");
        }
    }
    [[nodiscard]] bool isRestrictedWhenBroken() const override { return true; }

private:
    test::FakeAddressBook addressBook_;
};

struct Kind {
    const char* name;
    std::unique_ptr<test::AddressBookSubject> (*make)();
};

class AddressBookTest : public testing::TestWithParam<Kind> {
protected:
    AddressBook& addressBook() { return subject_->addressBook(); }

    std::vector<ContactCard> allCards(Fields fields = Fields::IdentifiersAndNames) {
        EXPECT_TRUE(requestAccess(addressBook()));
        return cardsOf(addressBook(), fields);
    }

    /// Expects the added cards back unchanged, in any order.
    void expectKept(const std::vector<ContactCard>& cards) {
        subject_->add(cards);
        EXPECT_THAT(allCards(), UnorderedElementsAreArray(cards));
    }

    std::unique_ptr<test::AddressBookSubject> subject_ = GetParam().make();
};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    ,
    AddressBookTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<test::AddressBookSubject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{"Real", test::makeRealAddressBook}),
    [](const auto& kind) { return kind.param.name; });

TEST_P(AddressBookTest, StartsUndecided) {
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::NotDetermined);
}

TEST_P(AddressBookTest, ConsentGrantsAccess) {
    EXPECT_TRUE(requestAccess(addressBook()));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
}

TEST_P(AddressBookTest, RefusalDeniesAccess) {
    subject_->add({ContactCard{"Jane", "Doe", "", {}, {}}});
    subject_->setUserAllows(false);
    EXPECT_FALSE(requestAccess(addressBook()));
    EXPECT_NE(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
    EXPECT_NE(errorOf(addressBook(), Fields::Identifiers), "");
}

TEST_P(AddressBookTest, AsksForConsentOnce) {
    EXPECT_TRUE(requestAccess(addressBook()));
    subject_->setUserAllows(false);
    EXPECT_TRUE(requestAccess(addressBook()));
    EXPECT_EQ(subject_->questions(), 1);
}

TEST_P(AddressBookTest, AsksAgainAfterARefusalUnlessItIsStored) {
    subject_->setUserAllows(false);
    EXPECT_FALSE(requestAccess(addressBook()));
    const bool isDecided =
        addressBook().authorizationStatus() == AddressBook::AuthorizationStatus::Denied;
    subject_->setUserAllows(true);
    EXPECT_EQ(requestAccess(addressBook()), !isDecided);
    EXPECT_EQ(subject_->questions(), isDecided ? 1 : 2);
}

TEST_P(AddressBookTest, ReadsNothingWithoutAccess) {
    subject_->add({ContactCard{"Jane", "Doe", "", {}, {}}});
    EXPECT_FALSE(errorOf(addressBook(), Fields::Identifiers).empty());
}

TEST_P(AddressBookTest, AnEmptyBookHasNoCards) {
    EXPECT_THAT(allCards(), IsEmpty());
}

TEST_P(AddressBookTest, GivesNamesAndOrganization) {
    expectKept({ContactCard{"Jane", "Doe", "Example Ltd", {}, {}}});
}

TEST_P(AddressBookTest, GivesEveryPhoneNumberAndEmailUnchanged) {
    expectKept({ContactCard{
        "Jane",
        "Doe",
        "",
        {"+1 (415) 555-0134", "020 7946 0958", "555-0134", "12", "+44 20 7946 0958", "1800FLOWERS"},
        {"Jane@Example.com",
         "a@example.com",
         "b@example.com",
         "c@example.com",
         "d@example.com",
         "e@example.com"}}});
}

TEST_P(AddressBookTest, GivesAnOrganizationThatIsNoPerson) {
    expectKept({ContactCard{"", "", "Example Ltd", {"+1 415 555 0134"}, {}}});
}

TEST_P(AddressBookTest, GivesAPersonWithOneName) {
    expectKept({ContactCard{"Jane", "", "", {}, {}}, ContactCard{"", "Doe", "", {}, {}}});
}

TEST_P(AddressBookTest, GivesNamesInAnyScript) {
    expectKept(
        {ContactCard{"Ægir", "Þórðarson", "", {}, {"ægir@example.com"}},
         ContactCard{"伟", "王", "北京公司", {"٠١٢٣٤٥٦٧٨"}, {}},
         ContactCard{"👩‍🚀", "", "", {}, {}}});
}

TEST_P(AddressBookTest, GivesAnEmptyCard) {
    expectKept({ContactCard{}, ContactCard{"Jane", "", "", {}, {}}});
}

TEST_P(AddressBookTest, GivesOnlyTheFieldsAskedFor) {
    subject_->add({ContactCard{"Jane", "Doe", "Example Ltd", {"12"}, {"a@example.com"}}});
    EXPECT_THAT(
        allCards(Fields::Identifiers),
        UnorderedElementsAreArray({ContactCard{"", "", "", {"12"}, {"a@example.com"}}}));
}

TEST_P(AddressBookTest, SeesCardsAddedSinceTheLastRead) {
    EXPECT_THAT(allCards(), IsEmpty());
    subject_->add({ContactCard{"Jane", "", "", {}, {}}});
    EXPECT_EQ(allCards().size(), 1U);
}

TEST_P(AddressBookTest, CardsThatCannotBeReadAreAnError) {
    const ContactCard jane{"Jane", "", "", {"12"}, {}};
    subject_->add({jane});
    ASSERT_TRUE(requestAccess(addressBook()));
    subject_->breakPart();
    const AddressBook::Cards read = enumerate(addressBook(), Fields::IdentifiersAndNames);
    EXPECT_TRUE(read.error);
    EXPECT_THAT(read.cards, testing::Each(jane));
    EXPECT_EQ(addressBook().authorizationStatus(), AddressBook::AuthorizationStatus::Authorized);
}

TEST_P(AddressBookTest, AFailureToReadChangesNoDecision) {
    using Status = AddressBook::AuthorizationStatus;
    subject_->add({ContactCard{"Jane", "", "", {}, {}}});
    ASSERT_TRUE(requestAccess(addressBook()));
    subject_->setBroken(true);
    const AddressBook::Cards read = enumerate(addressBook(), Fields::Identifiers);
    EXPECT_TRUE(read.error);
    EXPECT_THAT(read.cards, IsEmpty());
    EXPECT_EQ(
        addressBook().authorizationStatus(),
        subject_->isRestrictedWhenBroken() ? Status::Restricted : Status::Authorized);
    subject_->setBroken(false);
    EXPECT_EQ(errorOf(addressBook(), Fields::Identifiers), "");
    EXPECT_TRUE(test::waitUntil(
        [this] { return addressBook().authorizationStatus() == Status::Authorized; }));
    EXPECT_EQ(subject_->questions(), 1);
}

TEST_P(AddressBookTest, AnswersEachOfSeveralPendingCallsOnce) {
    subject_->add({ContactCard{"Jane", "", "", {}, {}}});
    ASSERT_TRUE(requestAccess(addressBook()));
    const auto sizes = std::make_shared<std::vector<std::size_t>>();
    for (int i = 0; i < 3; ++i) {
        addressBook().enumerateCards(Fields::Identifiers, [sizes](const AddressBook::Cards& cards) {
            sizes->push_back(cards.cards.size());
        });
    }
    // Later calls may finish first, so repeat until all three have finished.
    while (sizes->size() < 3) {
        EXPECT_EQ(cardsOf(addressBook(), Fields::Identifiers).size(), 1U);
    }
    test::processEvents();
    EXPECT_THAT(*sizes, testing::ElementsAre(1U, 1U, 1U));
}

TEST_P(AddressBookTest, TwoPendingRequestsAskOnce) {
    const auto answers = std::make_shared<std::vector<bool>>();
    addressBook().requestAccess([answers](bool isGranted) { answers->push_back(isGranted); });
    EXPECT_TRUE(requestAccess(addressBook()));
    test::processEvents();
    EXPECT_THAT(*answers, testing::ElementsAre(true));
    EXPECT_EQ(subject_->questions(), 1);
}

TEST_P(AddressBookTest, OneRefusalAnswersTwoPendingRequests) {
    subject_->setUserAllows(false);
    const auto answers = std::make_shared<std::vector<bool>>();
    addressBook().requestAccess([answers](bool isGranted) { answers->push_back(isGranted); });
    EXPECT_FALSE(requestAccess(addressBook()));
    test::processEvents();
    EXPECT_THAT(*answers, testing::ElementsAre(false));
    EXPECT_EQ(subject_->questions(), 1);
}

} // namespace orvel
