// SPDX-License-Identifier: Apache-2.0
#include "tests/support/LayoutCheck.h"

#include "OrvelAgent/TextLabel.h"

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <gtest/gtest.h>

namespace orvel {
namespace {

class LayoutCheckTest : public testing::Test {
protected:
    QPushButton* addButton(const QRect& place) {
        auto* button = new QPushButton(QStringLiteral("A button"), &window_);
        button->setGeometry(place);
        return button;
    }

    std::string faults() {
        window_.resize(400, 200);
        window_.show();
        return test::layoutFaults(window_).join(u'\n').toStdString();
    }

    QWidget window_;
};

TEST_F(LayoutCheckTest, FindsNothingWhereNothingIsWrong) {
    addButton(QRect(0, 0, 200, 60));
    addButton(QRect(0, 60, 200, 60));
    EXPECT_EQ(faults(), "");
}

TEST_F(LayoutCheckTest, FindsAButtonThatIsCut) {
    addButton(QRect(0, 0, 30, 60));
    EXPECT_TRUE(faults().starts_with("cut: "));
}

TEST_F(LayoutCheckTest, FindsALabelThatIsCut) {
    auto* label = new QLabel(QStringLiteral("Many words that need several lines."), &window_);
    label->setGeometry(0, 0, 80, label->fontMetrics().height());
    label->setWordWrap(true);
    EXPECT_TRUE(faults().starts_with("cut: "));
}

TEST_F(LayoutCheckTest, FindsATextThatIsCut) {
    auto* label = new TextLabel(Theme::TextStyle::Body);
    label->setParent(&window_);
    label->setText(QStringLiteral("Many words that need several lines."));
    label->setGeometry(0, 0, 80, 2 * label->fontMetrics().height());
    EXPECT_TRUE(faults().starts_with("cut: "));
}

TEST_F(LayoutCheckTest, FindsControlsThatOverlap) {
    addButton(QRect(0, 0, 200, 60));
    addButton(QRect(0, 59, 200, 60));
    EXPECT_TRUE(faults().starts_with("overlap: "));
}

TEST_F(LayoutCheckTest, FindsAControlThatReachesOut) {
    addButton(QRect(300, 0, 200, 60));
    EXPECT_TRUE(faults().starts_with("reaches out: "));
}

TEST_F(LayoutCheckTest, OverlooksWhatIsHidden) {
    addButton(QRect(300, 0, 20, 6))->hide();
    EXPECT_EQ(faults(), "");
}

} // namespace
} // namespace orvel
