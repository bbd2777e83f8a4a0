// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/ContactsQuestion.h"

#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/widgets/DesktopLook.h"
#include "tests/support/widgets/WidgetLayout.h"

#include <QAccessible>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace orvel {
namespace {

using test::processEvents;
using testing::ElementsAre;
using testing::IsEmpty;

class ContactsQuestionTest : public testing::Test {
protected:
    ContactsQuestionTest() { question_->ask(); }
    ~ContactsQuestionTest() override { delete question_; }

    QPushButton* button(const char* name) {
        return question_->findChild<QPushButton*>(QString::fromLatin1(name));
    }

    std::vector<bool> answers_;
    QPointer<ContactsQuestion> question_ = new ContactsQuestion(
        QStringLiteral("Orvel Agent"), [this](bool isAllowed) { answers_.push_back(isAllowed); });
};

TEST_F(ContactsQuestionTest, ExplainsWhatIsReadAndWhatIsSent) {
    EXPECT_EQ(
        question_->findChild<QLabel*>(QStringLiteral("title"))->text(),
        QStringLiteral("Allow Orvel Agent to read your contacts?"));
    const QString text = question_->findChild<QLabel*>(QStringLiteral("text"))->text();
    EXPECT_TRUE(text.contains(QStringLiteral("reads the names, phone numbers and e-mail")));
    EXPECT_TRUE(text.contains(QStringLiteral("sends the name and the e-mail addresses")));
}

TEST_F(ContactsQuestionTest, AllowingAnswersYesOnceAndClosesIt) {
    button("allow")->click();
    button("dontAllow")->click();
    processEvents();
    EXPECT_THAT(answers_, ElementsAre(true));
    EXPECT_EQ(question_, nullptr);
}

TEST_F(ContactsQuestionTest, RefusingAnswersNoOnceAndClosesIt) {
    button("dontAllow")->click();
    question_->close();
    processEvents();
    EXPECT_THAT(answers_, ElementsAre(false));
    EXPECT_EQ(question_, nullptr);
}

TEST_F(ContactsQuestionTest, ClosingItAnswersNo) {
    question_->close();
    processEvents();
    EXPECT_THAT(answers_, ElementsAre(false));
}

TEST_F(ContactsQuestionTest, TheEscapeKeyAnswersNo) {
    QTest::keyClick(question_.data(), Qt::Key_Escape);
    processEvents();
    EXPECT_THAT(answers_, ElementsAre(false));
}

TEST_F(ContactsQuestionTest, TheCloseShortcutAnswersNo) {
    ASSERT_TRUE(test::waitUntil([this] { return question_->isActiveWindow(); }));
    QTest::keySequence(question_.data(), QKeySequence::Close);
    processEvents();
    EXPECT_THAT(answers_, ElementsAre(false));
}

TEST_F(ContactsQuestionTest, AKeyPressedWhileItOpensAllowsNothing) {
    QTest::keyClick(question_->focusWidget(), Qt::Key_Return);
    EXPECT_THAT(answers_, IsEmpty());
    QTest::keyClick(question_->focusWidget(), Qt::Key_Space);
    processEvents();
    EXPECT_THAT(answers_, ElementsAre(false));
}

TEST_F(ContactsQuestionTest, DestroyingItUnansweredCallsNothing) {
    delete question_;
    EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(ContactsQuestionTest, AskingAgainRestoresAMinimisedWindow) {
    question_->showMinimized();
    question_->ask();
    EXPECT_FALSE(question_->isMinimized());
    EXPECT_TRUE(question_->isVisible());
    EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(ContactsQuestionTest, IsAnsweredBeforeItIsDestroyed) {
    EXPECT_FALSE(question_->isAnswered());
    question_->close();
    ASSERT_NE(question_, nullptr);
    EXPECT_TRUE(question_->isAnswered());
}

TEST_F(ContactsQuestionTest, TheOtherWindowsStayUsable) {
    EXPECT_FALSE(question_->isModal());
    EXPECT_TRUE(question_->isVisible());
}

TEST_F(ContactsQuestionTest, ItsButtonsHaveNames) {
    for (const char* name : {"allow", "dontAllow"}) {
        const auto* accessible = QAccessible::queryAccessibleInterface(button(name));
        EXPECT_NE(accessible->text(QAccessible::Name), QString());
    }
    EXPECT_EQ(button("dontAllow")->text(), QStringLiteral("Don’t Allow"));
}

class ContactsQuestionLookTest : public testing::TestWithParam<test::Look> {};

TEST_P(ContactsQuestionLookTest, NothingIsCutAndNothingOverlaps) {
    const test::DesktopLook look(GetParam());
    ContactsQuestion question(QStringLiteral("Orvel Agent"), {});
    question.setAttribute(Qt::WA_DeleteOnClose, false);
    question.show();
    processEvents();
    EXPECT_THAT(test::layoutFaults(question), IsEmpty());
}

TEST_P(ContactsQuestionLookTest, GrowsAndShrinksWithTheText) {
    ContactsQuestion question(QStringLiteral("Orvel Agent"), {});
    question.setAttribute(Qt::WA_DeleteOnClose, false);
    question.show();
    processEvents();
    const QSize before = question.size();
    {
        const test::DesktopLook look(GetParam());
        processEvents();
        EXPECT_THAT(test::layoutFaults(question), IsEmpty());
    }
    processEvents();
    EXPECT_EQ(question.size(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Looks, ContactsQuestionLookTest, testing::ValuesIn(test::allLooks()), test::nameOfLook);

} // namespace
} // namespace orvel
