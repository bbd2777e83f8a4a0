// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/TextLabel.h"

#include "tests/support/widgets/ToolTipText.h"

#include <QFontMetrics>

#include <gtest/gtest.h>

namespace orvel {
namespace {

int lineHeight(const TextLabel& label) {
    return label.heightForWidth(10'000);
}

TEST(TextLabelTest, BreaksAWordLongerThanTheLine) {
    TextLabel label(Theme::TextStyle::Body);
    label.setText(QString(100, u'x'));
    EXPECT_LT(label.minimumSizeHint().width(), 100);
    EXPECT_GE(label.heightForWidth(200), 4 * lineHeight(label));
}

TEST(TextLabelTest, KeepsLineBreaksInTheText) {
    TextLabel label(Theme::TextStyle::Body);
    label.setText(QStringLiteral("one"));
    const int one = lineHeight(label);
    label.setText(QStringLiteral("one\ntwo\n\nfour"));
    EXPECT_EQ(lineHeight(label), 4 * one);
}

TEST(TextLabelTest, ShowsMarkupAsPlainText) {
    const TextLabel label(Theme::TextStyle::Body);
    EXPECT_EQ(label.textFormat(), Qt::PlainText);
}

TEST(TextLabelTest, TheToolTipShowsMarkupAsPlainText) {
    for (const char* text :
         {"<b>Call me</b>",
          "<img src=\"/dev/null\">",
          "a & b &amp; c &lt;",
          "two  spaces\tand\nlines",
          "%1 plain"}) {
        TextLabel label(
            Theme::TextStyle::Caption, Theme::Role::Secondary, TextLabel::Overflow::Elide);
        label.setText(QString::fromUtf8(text));
        label.resize(10, label.sizeHint().height());
        EXPECT_EQ(test::toolTipText(label), text);
    }
}

TEST(TextLabelTest, ElidesOnlyTextThatDoesNotFit) {
    TextLabel label(Theme::TextStyle::Caption, Theme::Role::Secondary, TextLabel::Overflow::Elide);
    label.setText(QStringLiteral("sample-1@orvel.example"));
    label.resize(label.sizeHint());
    EXPECT_FALSE(label.isElided());
    label.resize(label.width() - 1, label.height());
    EXPECT_TRUE(label.isElided());
    EXPECT_FALSE(label.hasHeightForWidth());
}

} // namespace
} // namespace orvel
