// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/update/VersionHistoryLoading.h"

#include "tests/platform/RealBundle.h"
#include "tests/support/fakes/FakeBundle.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace orvel::test {

namespace {

tavrin::VersionHistory loaded(std::string changeLog) {
    FakeBundle bundle;
    bundle.setResource("CHANGELOG.md", std::move(changeLog));
    return loadVersionHistory(bundle);
}

} // namespace

TEST(VersionHistoryLoadingTest, ReadsTheBundlesChangeLog) {
    const tavrin::VersionHistory history = loaded(
        "# Changelog\n## [1.4.0] - 2025-06-02\n### Added\n- \xC3\xA9t\xC3\xA9\n## [1.3.9]\n");
    ASSERT_EQ(history.releases.size(), 2U);
    EXPECT_EQ(history.releases.front().version, "1.4.0");
    EXPECT_EQ(history.releases.front().date, "2025-06-02");
    ASSERT_EQ(history.releases.front().changes.size(), 1U);
    EXPECT_EQ(history.releases.front().changes.front().text, "\xC3\xA9t\xC3\xA9");
}

TEST(VersionHistoryLoadingTest, AMissingChangeLogGivesAnEmptyHistory) {
    EXPECT_TRUE(loadVersionHistory(FakeBundle()).releases.empty());
}

TEST(VersionHistoryLoadingTest, AChangeLogThatIsNotUTF8GivesAnEmptyHistory) {
    EXPECT_FALSE(loaded("## [1.4.0]\n").releases.empty());
    EXPECT_TRUE(loaded("## [1.4.0]\n\xFF").releases.empty());
}

TEST(VersionHistoryLoadingTest, TheProductsOwnChangeLogHasChangesUnderEverySection) {
    const tavrin::VersionHistory history = loadVersionHistory(*makeRealBundleOfThisProgram());
    ASSERT_FALSE(history.releases.empty());
    for (const auto& release : history.releases) {
        EXPECT_NE(release.version, "");
        EXPECT_FALSE(release.changes.empty()) << release.version;
    }
}

} // namespace orvel::test
