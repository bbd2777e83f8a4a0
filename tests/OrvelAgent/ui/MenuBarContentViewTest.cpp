// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/MenuBarContentView.h"

#include "OrvelAgent/Theme.h"
#include "tests/support/LayoutCheck.h"
#include "tests/support/Palettes.h"
#include "tests/support/RunTask.h"
#include "tests/support/SampleAgent.h"

#include <QApplication>
#include <QFont>
#include <QPushButton>

#include <gtest/gtest.h>

namespace orvel {
namespace {

using test::AgentState;
using test::processEvents;
using test::SampleAgent;

std::string nameOfState(const testing::TestParamInfo<AgentState>& info) {
    std::string result = test::name(info.param);
    std::erase(result, '-');
    return result;
}

class PanelLayoutTest : public testing::TestWithParam<AgentState> {
protected:
    PanelLayoutTest() : font_(QApplication::font()), palette_(QApplication::palette()) {}
    ~PanelLayoutTest() override {
        QApplication::setFont(font_);
        QApplication::setPalette(palette_);
        QApplication::setLayoutDirection(Qt::LeftToRight);
    }

private:
    QFont font_;
    QPalette palette_;
};

TEST_P(PanelLayoutTest, NothingIsCutAndNothingOverlaps) {
    const double size = QApplication::font().pointSizeF();
    SampleAgent agent(GetParam());
    for (const test::Palette palette : {test::Palette::Light, test::Palette::Dark}) {
        for (const double larger : {1.0, 1.5, 2.0}) {
            for (const auto direction : {Qt::LeftToRight, Qt::RightToLeft}) {
                QFont font = QApplication::font();
                font.setPointSizeF(size * larger);
                QApplication::setFont(font);
                QApplication::setPalette(test::palette(palette));
                QApplication::setLayoutDirection(direction);
                MenuBarContentView panel(agent.model());
                panel.show();
                processEvents();
                EXPECT_EQ(test::layoutFaults(panel).join(u'\n').toStdString(), "")
                    << "text " << larger << ", direction " << direction;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    States, PanelLayoutTest, testing::ValuesIn(test::allAgentStates), nameOfState);

} // namespace
} // namespace orvel
