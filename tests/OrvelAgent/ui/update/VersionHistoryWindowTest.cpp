// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/VersionHistoryWindow.h"

#include "OrvelAgent/base/SourceRevision.h"
#include "OrvelAgent/ui/controls/Badge.h"
#include "OrvelAgent/ui/update/ChangeRow.h"
#include "OrvelAgent/ui/update/ReleaseSection.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/widgets/DesktopLook.h"
#include "tests/support/widgets/WidgetLayout.h"

#include <QLabel>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Strings = std::vector<std::string>;

class VersionHistoryWindowTest : public testing::Test {
protected:
    VersionHistoryWindow& open() {
        window_ = std::make_unique<VersionHistoryWindow>(bundle_);
        window_->show();
        processEvents();
        return *window_;
    }

    [[nodiscard]] Strings texts(const char* name) const {
        Strings texts;
        for (const QLabel* label : window_->findChildren<QLabel*>(QLatin1String(name))) {
            texts.push_back(label->text().toStdString());
        }
        return texts;
    }

    /// The versions with the badge.
    [[nodiscard]] Strings installed() const {
        Strings versions;
        for (const ReleaseSection* release : window_->findChildren<ReleaseSection*>()) {
            if (release->findChild<Badge*>(QStringLiteral("installed")) != nullptr) {
                const auto* version = release->findChild<QLabel*>(QStringLiteral("version"));
                versions.push_back(version->text().toStdString());
            }
        }
        return versions;
    }

    /// The badge's background colour.
    [[nodiscard]] QColor badgeColor(const std::string& label) const {
        for (Badge* badge : window_->findChildren<Badge*>(QStringLiteral("label"))) {
            if (badge->text().toStdString() == label) {
                const QImage image = badge->grab().toImage();
                return image.pixelColor(2, image.height() / 2);
            }
        }
        return {};
    }

    FakeBundle bundle_;
    std::unique_ptr<VersionHistoryWindow> window_;
};

constexpr const char* changeLog = R"(# Changelog

## [2.0.0] - 2025-06-02

### Added
- First
  and its second line.
- Second.

### Improved
- Faster.

### Fixed
- Mended.

### Security
- Safer.

## [1.0.0] - 2025-01-01

## [0.0.0]

### Added
- Begun.
)";

} // namespace

TEST_F(VersionHistoryWindowTest, HasTitleNameAndPreferredSize) {
    VersionHistoryWindow& window = open();
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Orvel Agent Version History"));
    EXPECT_EQ(window.objectName(), QStringLiteral("version-history"));
    EXPECT_EQ(window.size(), QSize(460, 420));
}

TEST_F(VersionHistoryWindowTest, ShowsInstalledVersionBuildAndRevision) {
    bundle_.setInfo("CFBundleShortVersionString", "1.4.0");
    bundle_.setInfo("CFBundleVersion", "17");
    open();
    EXPECT_EQ(texts("title"), Strings{"Orvel Agent"});
    EXPECT_EQ(texts("installedVersion"), Strings{"Version 1.4.0 (17)"});
    EXPECT_EQ(texts("revision"), Strings{std::string(sourceRevision())});
    EXPECT_FALSE(sourceRevision().empty());
}

TEST_F(VersionHistoryWindowTest, WithoutVersionInformationItShowsZeroes) {
    open();
    EXPECT_EQ(texts("installedVersion"), Strings{"Version 0.0.0 (0)"});
}

TEST_F(VersionHistoryWindowTest, WithoutAChangeLogItShowsANotice) {
    open();
    EXPECT_EQ(texts("notice"), Strings{"No version history in this build."});
    EXPECT_TRUE(window_->findChildren<ReleaseSection*>().empty());
}

TEST_F(VersionHistoryWindowTest, AChangeLogWithoutReleasesShowsTheSameNotice) {
    bundle_.setResource("CHANGELOG.md", "# Changelog\n");
    open();
    EXPECT_EQ(texts("notice"), Strings{"No version history in this build."});
}

TEST_F(VersionHistoryWindowTest, ListsReleasesInChangeLogOrder) {
    bundle_.setResource("CHANGELOG.md", changeLog);
    open();
    EXPECT_EQ(texts("version"), (Strings{"2.0.0", "1.0.0", "0.0.0"}));
    EXPECT_EQ(texts("date"), (Strings{"2025-06-02", "2025-01-01", ""}));
    EXPECT_EQ(
        texts("change"),
        (Strings{
            "First and its second line.", "Second.", "Faster.", "Mended.", "Safer.", "Begun."}));
    EXPECT_TRUE(texts("notice").empty());
}

TEST_F(VersionHistoryWindowTest, AReleaseWithoutChangesIsAMaintenanceRelease) {
    bundle_.setResource("CHANGELOG.md", changeLog);
    open();
    EXPECT_EQ(texts("maintenance"), Strings{"Maintenance release."});
}

TEST_F(VersionHistoryWindowTest, OnlyTheInstalledReleaseHasTheBadge) {
    bundle_.setResource("CHANGELOG.md", changeLog);
    bundle_.setInfo("CFBundleShortVersionString", "1.0.0");
    open();
    EXPECT_EQ(installed(), Strings{"1.0.0"});
}

TEST_F(VersionHistoryWindowTest, WithoutVersionInformationReleaseZeroIsInstalled) {
    bundle_.setResource("CHANGELOG.md", changeLog);
    open();
    EXPECT_EQ(installed(), Strings{"0.0.0"});
}

TEST_F(VersionHistoryWindowTest, TheLabelDecidesTheColourOfTheBadge) {
    bundle_.setResource("CHANGELOG.md", changeLog);
    open();
    const QPalette palette = window_->palette();
    EXPECT_EQ(badgeColor("New"), Theme::color(Theme::Role::Green, palette));
    EXPECT_EQ(badgeColor("Better"), Theme::color(Theme::Role::Blue, palette));
    EXPECT_EQ(badgeColor("Fix"), Theme::color(Theme::Role::Orange, palette));
    EXPECT_EQ(badgeColor("Security"), Theme::color(Theme::Role::Orange, palette));
}

TEST_F(VersionHistoryWindowTest, ABadgeIs46PixelsWideUnlessItsLabelNeedsMore) {
    bundle_.setResource("CHANGELOG.md", changeLog);
    open();
    for (const Badge* badge : window_->findChildren<Badge*>(QStringLiteral("label"))) {
        if (badge->text() == QStringLiteral("Security")) {
            EXPECT_GE(badge->width(), badge->sizeHint().width());
        } else {
            EXPECT_EQ(badge->width(), 46) << badge->text().toStdString();
        }
    }
}

TEST_F(VersionHistoryWindowTest, LongTextsWrapAndCanBeCopied) {
    bundle_.setResource(
        "CHANGELOG.md",
        "## [1.0]\n### Added\n- " + std::string(100, 'a') + " " + std::string(30, 'b') + " c\n");
    open();
    for (const QLabel* label : window_->findChildren<QLabel*>(QStringLiteral("change"))) {
        EXPECT_TRUE(label->wordWrap());
        EXPECT_TRUE(label->textInteractionFlags().testFlag(Qt::TextSelectableByMouse));
        EXPECT_TRUE(label->textInteractionFlags().testFlag(Qt::TextSelectableByKeyboard));
    }
}

TEST_F(VersionHistoryWindowTest, ShowsTheTextOfAChangeAsPlainText) {
    bundle_.setResource(
        "CHANGELOG.md", "## [<b>1.0</b>]\n### Added\n- <img src=x> & <i>more</i>\n");
    open();
    EXPECT_EQ(texts("change"), Strings{"<img src=x> & <i>more</i>"});
    for (const QLabel* label : window_->findChildren<QLabel*>()) {
        EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->text().toStdString();
    }
}

class VersionHistoryWindowLookTest : public VersionHistoryWindowTest,
                                     public testing::WithParamInterface<Look> {};

TEST_P(VersionHistoryWindowLookTest, NoTextIsCut) {
    const DesktopLook look(GetParam());
    bundle_.setInfo("CFBundleShortVersionString", "2.0.0");
    bundle_.setResource(
        "CHANGELOG.md", changeLog + ("### Compatibility\n- " + std::string(60, 'x') + " wraps\n"));
    open();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
    for (const Badge* badge : window_->findChildren<Badge*>()) {
        EXPECT_GE(badge->width(), badge->sizeHint().width()) << badge->text().toStdString();
        EXPECT_GE(badge->height(), badge->sizeHint().height()) << badge->text().toStdString();
    }
}

TEST_P(VersionHistoryWindowLookTest, NoTextIsCutWithoutReleases) {
    const DesktopLook look(GetParam());
    open();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
}

TEST_P(VersionHistoryWindowLookTest, TextOnABadgeIsReadable) {
    const DesktopLook look(GetParam());
    bundle_.setResource("CHANGELOG.md", changeLog);
    open();
    const QColor word = window_->palette().color(QPalette::Window);
    for (const char* label : {"New", "Better", "Fix"}) {
        EXPECT_GE(Theme::contrast(word, badgeColor(label)), 4.5) << label;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Looks, VersionHistoryWindowLookTest, testing::ValuesIn(allLooks()), nameOfLook);

} // namespace orvel::test
