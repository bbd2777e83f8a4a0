// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/SelectableText.h"

#include "tests/support/RunTask.h"
#include "tests/support/widgets/DesktopLook.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

class SelectableTextTest : public testing::Test {
protected:
    [[nodiscard]] int lineHeight() const { return text_.heightForWidth(10'000); }

    SelectableText text_{Theme::TextStyle::Caption, Theme::Role::Red};
};

TEST_F(SelectableTextTest, HeightFitsItsLines) {
    text_.setText(QStringLiteral("one"));
    text_.resize(200, 100);
    text_.show();
    test::processEvents();
    EXPECT_EQ(text_.document()->size().height(), lineHeight());
    EXPECT_LT(lineHeight(), 2 * text_.fontMetrics().height());
    const int one = lineHeight();
    text_.setText(QStringLiteral("one\ntwo"));
    EXPECT_EQ(lineHeight(), 2 * one);
}

TEST_F(SelectableTextTest, BreaksAWordLongerThanTheLine) {
    text_.setText(QString(100, u'x'));
    EXPECT_LT(text_.minimumSizeHint().width(), 100);
    EXPECT_GE(text_.heightForWidth(200), 3 * lineHeight());
}

TEST_F(SelectableTextTest, ShowsMarkupAsPlainText) {
    text_.setText(QStringLiteral("<b>one</b>"));
    EXPECT_EQ(text_.toPlainText(), QStringLiteral("<b>one</b>"));
}

TEST_F(SelectableTextTest, SettingTheSameTextKeepsTheSelection) {
    text_.setText(QStringLiteral("one"));
    text_.selectAll();
    text_.setText(QStringLiteral("one"));
    EXPECT_EQ(text_.textCursor().selectedText(), QStringLiteral("one"));
    text_.setText(QStringLiteral("two"));
    EXPECT_EQ(text_.toPlainText(), QStringLiteral("two"));
}

TEST_F(SelectableTextTest, ComparesWithTheTextBeforeTheDocumentConvertsIt) {
    for (const QString& text :
         {QStringLiteral("50\u00a0%"),
          QStringLiteral("one\r\ntwo"),
          QStringLiteral("one\u2028two")}) {
        text_.setText(text);
        text_.selectAll();
        text_.setText(text);
        EXPECT_TRUE(text_.textCursor().hasSelection()) << text.toStdString();
    }
}

TEST_F(SelectableTextTest, FollowsTheDesktop) {
    text_.setText(QStringLiteral("one"));
    const int before = lineHeight();
    const test::DesktopLook look({test::Palette::Dark, 150, Qt::RightToLeft});
    test::processEvents();
    EXPECT_GT(lineHeight(), before);
    EXPECT_EQ(
        text_.palette().color(QPalette::Text),
        Theme::color(Theme::Role::Red, test::palette(test::Palette::Dark)));
    EXPECT_TRUE(text_.document()->defaultTextOption().alignment().testFlag(Qt::AlignRight));
}

} // namespace
} // namespace orvel
