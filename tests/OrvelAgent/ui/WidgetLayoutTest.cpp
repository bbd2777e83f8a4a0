// SPDX-License-Identifier: Apache-2.0
#include "tests/support/widgets/WidgetLayout.h"

#include "OrvelAgent/ui/controls/TextLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class WidgetLayoutTest : public testing::Test {
protected:
    QPushButton* addButton(const QRect& geometry) {
        auto* button = new QPushButton(QStringLiteral("A button"), &window_);
        button->setGeometry(geometry);
        return button;
    }

    std::vector<std::string> faults() {
        window_.resize(400, 200);
        window_.show();
        return test::layoutFaults(window_);
    }

    QWidget window_;
};

TEST_F(WidgetLayoutTest, FindsNothingInACorrectLayout) {
    addButton(QRect(0, 0, 200, 60));
    addButton(QRect(0, 60, 200, 60));
    EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(WidgetLayoutTest, FindsAButtonThatIsCut) {
    addButton(QRect(0, 0, 30, 60));
    EXPECT_THAT(faults(), ElementsAre(HasSubstr("is cut")));
}

TEST_F(WidgetLayoutTest, FindsAButtonWithoutPadding) {
    auto* button = addButton(QRect(0, 0, 200, 60));
    button->setText(QStringLiteral("A text of more than the least width"));
    button->resize(button->sizeHint());
    EXPECT_THAT(faults(), ElementsAre(HasSubstr("has no room beside its text")));
    button->resize(button->width() + 2 * Theme::buttonPadding, button->height());
    EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(WidgetLayoutTest, FindsALabelThatIsCut) {
    auto* label = new QLabel(QStringLiteral("Many words that need several lines."), &window_);
    label->setGeometry(0, 0, 80, label->fontMetrics().height());
    label->setWordWrap(true);
    EXPECT_THAT(faults(), ElementsAre(HasSubstr("is cut")));
}

TEST_F(WidgetLayoutTest, FindsATextThatIsCut) {
    auto* label = new TextLabel(Theme::TextStyle::Body);
    label->setParent(&window_);
    label->setText(QStringLiteral("Many words that need several lines."));
    label->setGeometry(0, 0, 80, 2 * label->fontMetrics().height());
    EXPECT_THAT(faults(), ElementsAre(HasSubstr("is cut")));
}

TEST_F(WidgetLayoutTest, FindsControlsThatOverlap) {
    addButton(QRect(0, 0, 200, 60));
    addButton(QRect(0, 59, 200, 60));
    EXPECT_THAT(faults(), ElementsAre(HasSubstr("lies over")));
}

TEST_F(WidgetLayoutTest, FindsAControlOutsideItsParent) {
    addButton(QRect(300, 0, 200, 60));
    EXPECT_THAT(faults(), ElementsAre(HasSubstr("stands out of its parent")));
}

TEST_F(WidgetLayoutTest, IgnoresHiddenWidgets) {
    addButton(QRect(300, 0, 20, 6))->hide();
    EXPECT_THAT(faults(), IsEmpty());
}

} // namespace
} // namespace orvel
