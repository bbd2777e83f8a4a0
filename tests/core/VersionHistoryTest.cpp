// SPDX-License-Identifier: Apache-2.0
#include "core/VersionHistory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin {

namespace {

/// The parsed releases as lines: version and date, then the changes as "label: text".
std::vector<std::string> parsed(std::string_view text) {
    std::vector<std::string> lines;
    for (const VersionHistory::Release& release : VersionHistory::parse(text)) {
        std::string line = release.version + " <" + release.date + ">";
        for (const VersionHistory::Change& change : release.changes) {
            line += " {" + change.label + ": " + change.text + "}";
        }
        lines.push_back(line);
    }
    return lines;
}

using Lines = std::vector<std::string>;

/// The parsed changes of a release with this text.
Lines parsedInRelease(const std::string& text) {
    return parsed("## [1]\n" + text);
}

} // namespace

TEST(VersionHistoryTest, ReadsReleasesWithTheirChangesInTheOrderOfTheText) {
    EXPECT_EQ(
        parsed("# Changelog\n"
               "\n"
               "Words about the file.\n"
               "\n"
               "## [1.4.0] - 2025-06-02\n"
               "\n"
               "### Added\n"
               "\n"
               "- First\n"
               "- Second\n"
               "\n"
               "### Fixed\n"
               "\n"
               "- Third\n"
               "\n"
               "## [1.3.9] - 2025-05-01\n"
               "\n"
               "### Improved\n"
               "\n"
               "- Fourth\n"),
        (Lines{
            "1.4.0 <2025-06-02> {New: First} {New: Second} {Fix: Third}",
            "1.3.9 <2025-05-01> {Better: Fourth}"}));
}

TEST(VersionHistoryTest, WithoutAReleaseHeadingTheHistoryIsEmpty) {
    EXPECT_TRUE(parsed("").empty());
    EXPECT_TRUE(parsed("\n\r\n \t\n").empty());
    EXPECT_TRUE(parsed("# Changelog\n### Added\n- One\nand more\n").empty());
    EXPECT_TRUE(parsed("## 1.0.0\n### Added\n- One\n").empty());
    EXPECT_TRUE(parsed("##[1.0.0]\n# [1.0.0]\n### [1.0.0]\n").empty());
}

TEST(VersionHistoryTest, KeepsAReleaseWithoutChanges) {
    EXPECT_EQ(parsed("## [2]\n## [1] - today\n### Added\n"), (Lines{"2 <>", "1 <today>"}));
    EXPECT_EQ(parsed("## ["), Lines{" <>"}) << "the end of the text also ends the heading";
}

TEST(VersionHistoryTest, ReadsVersionAndDateOfAHeading) {
    const std::vector<std::pair<std::string_view, std::string_view>> cases = {
        {"## [1.4.0] - 2025-06-02", "1.4.0 <2025-06-02>"},
        {"## [1.4.0]", "1.4.0 <>"},
        {"## []", " <>"},
        {"## [ 1.4.0 ]- x", " 1.4.0  <x>"},
        {"## [1.4.0] -", "1.4.0 <>"},
        {"## [1.4.0] -2025", "1.4.0 <>"},
        {"## [1.4.0] 2025-06-02", "1.4.0 <>"},
        {"## [1.4.0] (beta) -   2 June - 3 June  ", "1.4.0 <2 June - 3 June>"},
        {"## [1.4.0]](x) - today", "1.4.0 <today>"},
        {"## [a [b] c] - today", "a [b <today>"},
        {"\t ## [1.4.0] - \ttoday\t ", "1.4.0 <today>"},
        {"## [Unreleased]", "Unreleased <>"},
    };
    for (const auto& [heading, expected] : cases) {
        EXPECT_EQ(parsed(heading), Lines{std::string(expected)}) << heading;
    }
}

TEST(VersionHistoryTest, AHeadingWithoutAClosingBracketIsAllVersion) {
    EXPECT_EQ(
        parsed("## [1.4.0 - 2025-06-02  \n### Added\n- One\n"),
        Lines{"1.4.0 - 2025-06-02 <> {New: One}"});
}

TEST(VersionHistoryTest, RenamesTheKnownSections) {
    const std::vector<std::pair<std::string_view, std::string_view>> cases = {
        {"Added", "New"},
        {"Improved", "Better"},
        {"Fixed", "Fix"},
        {"Security", "Security"},
        {"added", "added"},
        {"Added!", "Added!"},
        {"Fixed bugs", "Fixed bugs"},
        {"  Added\t", "New"},
        {"New", "New"},
    };
    for (const auto& [heading, label] : cases) {
        EXPECT_EQ(
            parsedInRelease("### " + std::string(heading) + "\n- One"),
            Lines{"1 <> {" + std::string(label) + ": One}"})
            << heading;
    }
}

TEST(VersionHistoryTest, DropsChangesBeforeTheFirstSection) {
    EXPECT_EQ(parsedInRelease("- One\nand more\n### Added\n- Two\n"), Lines{"1 <> {New: Two}"});
    EXPECT_EQ(parsed("### Added\n- One\n## [1]\n- Two\nmore\n"), Lines{"1 <>"})
        << "a release heading ends the section above it";
}

TEST(VersionHistoryTest, AnEmptySectionHeadingIsIgnored) {
    EXPECT_EQ(
        parsedInRelease("### \t\n- One\n###\n- Two\n### Added\n- Three\n###\n- Four\n"),
        Lines{"1 <> {New: Three} {New: Four}"});
}

TEST(VersionHistoryTest, JoinsAWrappedChangeWithOneSpace) {
    EXPECT_EQ(
        parsedInRelease("### Added\n- One\n  and two,\n\tand three\n- Four\n"),
        Lines{"1 <> {New: One and two, and three} {New: Four}"});
}

TEST(VersionHistoryTest, AnEmptyLineDoesNotEndAChange) {
    EXPECT_EQ(parsedInRelease("### Added\n- One\n\n \t\ntwo\n"), Lines{"1 <> {New: One two}"});
}

TEST(VersionHistoryTest, AnotherHeadingChangesNothing) {
    EXPECT_EQ(
        parsedInRelease("### Added\n- One\n# Title\n## Two\n#### Three\n#four\nfive\n- Six\n"),
        Lines{"1 <> {New: One five} {New: Six}"});
}

TEST(VersionHistoryTest, TextBelowASectionHeadingContinuesTheChangeAboveIt) {
    EXPECT_EQ(
        parsedInRelease("### Added\nlost\n- One\n### Fixed\nkept\n- Two\n"),
        Lines{"1 <> {New: One kept} {Fix: Two}"});
}

TEST(VersionHistoryTest, ADashAloneStartsNoChange) {
    EXPECT_EQ(
        parsedInRelease("### Added\n- One\n-\n- \n-two\n* three\n"),
        Lines{"1 <> {New: One - - -two * three}"});
}

TEST(VersionHistoryTest, KeepsTheMarkupOfAChange) {
    EXPECT_EQ(
        parsedInRelease("### Added\n  -  **One** `two` - [three](https://example.org)\n"),
        Lines{"1 <> {New:  **One** `two` - [three](https://example.org)}"});
}

TEST(VersionHistoryTest, EveryLineBreakEndsALine) {
    for (const std::string_view end :
         {"\n", "\r", "\r\n", "\v", "\f", "\u0085", "\u2028", "\u2029"}) {
        std::string text;
        for (const std::string_view line :
             {"## [2] - today", "### Added", "- One", "and two", "- Three", "## [1]"}) {
            text.append(line).append(end);
        }
        EXPECT_EQ(parsed(text), (Lines{"2 <today> {New: One and two} {New: Three}", "1 <>"}));
    }
}

TEST(VersionHistoryTest, OtherSpacesBelongToTheText) {
    // A no-break space, and letters that end with the bytes of line breaks.
    EXPECT_EQ(
        parsedInRelease("### Added\n- \u00A0\u0105 \u20A8 \u3029 \u0445\n"),
        Lines{"1 <> {New: \u00A0\u0105 \u20A8 \u3029 \u0445}"});
}

TEST(VersionHistoryTest, LongLinesAndManyLinesAreText) {
    const std::string longLine(1'000'000, 'x');
    EXPECT_EQ(
        parsed("## [" + longLine + "] - " + longLine + "\n### " + longLine + "\n- " + longLine),
        Lines{longLine + " <" + longLine + "> {" + longLine + ": " + longLine + "}"});
    EXPECT_TRUE(parsed(longLine).empty());

    std::string manyLines = "### Added\n- x";
    std::string joined = "x";
    for (int line = 0; line < 300'000; ++line) {
        manyLines += "\nx";
        joined += " x";
    }
    EXPECT_EQ(parsedInRelease(manyLines), Lines{"1 <> {New: " + joined + "}"});
    EXPECT_TRUE(parsed(std::string(1'000'000, '\n')).empty());
    EXPECT_EQ(parsed(std::string(1'000'000, ' ') + "## [1]"), Lines{"1 <>"});
}

TEST(VersionHistoryTest, KeepsBytesThatAreNotUTF8) {
    EXPECT_EQ(
        parsed("\xFF\xFE\n## [\x80]\xC2\n### \xE2\x80\n- \xF0\x9F\n\xE2\x80\n- \xC2"),
        Lines{"\x80 <> {\xE2\x80: \xF0\x9F \xE2\x80} {\xE2\x80: \xC2}"});
    EXPECT_EQ(
        parsed(std::string_view("## [1\0]\n### A\0\n- \0b\n", 20)),
        Lines{std::string("1\0 <> {A\0: \0b}", 14)});
}

TEST(VersionHistoryTest, ParsesEveryPrefixOfAText) {
    constexpr std::string_view text =
        "# C\r\n## [1.4.0] - 2025\u2028### Added\n- One\u0085 two\n## [x\n### S\n- \u2029";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        EXPECT_LE(VersionHistory::parse(text.substr(0, length)).size(), 2U);
    }
}

TEST(VersionHistoryTest, EveryReleaseAndChangeHasAUniqueId) {
    constexpr std::string_view text = "## [1]\n### Added\n- One\n- One\n## [1]\n";
    std::set<boost::uuids::uuid> ids;
    for (int time = 0; time < 2; ++time) {
        for (const VersionHistory::Release& release : VersionHistory::parse(text)) {
            EXPECT_FALSE(release.id.is_nil());
            ids.insert(release.id);
            for (const VersionHistory::Change& change : release.changes) {
                EXPECT_FALSE(change.id.is_nil());
                ids.insert(change.id);
            }
        }
    }
    EXPECT_EQ(ids.size(), 8U);
}

TEST(VersionHistoryTest, EqualValuesHaveEqualHashes) {
    const std::vector<VersionHistory::Release> releases =
        VersionHistory::parse("## [1]\n### Added\n- One\n## [1]\n### Added\n- One\n");
    const VersionHistory::Release& first = releases.front();
    const VersionHistory::Release copy = first;
    EXPECT_EQ(copy, first);
    EXPECT_NE(releases.back(), first) << "the id counts";
    const std::hash<VersionHistory::Release> hash;
    EXPECT_EQ(hash(copy), hash(first));
    EXPECT_NE(hash(releases.back()), hash(first));
    const std::hash<VersionHistory::Change> hashOfChange;
    EXPECT_EQ(hashOfChange(copy.changes.front()), hashOfChange(first.changes.front()));
    EXPECT_NE(hashOfChange(releases.back().changes.front()), hashOfChange(first.changes.front()));
}

} // namespace tavrin
