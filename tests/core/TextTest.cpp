// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"

#include "core/UnicodeRules.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tavrin {

namespace {

using namespace std::string_literals;

const std::string replacement = "\uFFFD";

/// Random ASCII text, including white space and NUL.
std::string randomASCII(std::mt19937& random) {
    std::string text(random() % 24, '\0');
    for (char& character : text) {
        character = static_cast<char>(random() % 0x80);
    }
    return text;
}

} // namespace

TEST(TextTest, WellFormedTextIsValid) {
    for (const std::string& text :
         {""s,
          "plain"s,
          "a long plain text of more than eight bytes"s,
          "nul \0 inside"s,
          "caf\u00E9 \u4E2D\u6587 \U0001F600"s,
          "\u07FF\u0800\uFFFF\U00010000\U0010FFFF"s}) {
        EXPECT_TRUE(isValidUTF8(text)) << text;
        EXPECT_EQ(repairedUTF8(text), text);
    }
}

TEST(TextTest, IllFormedPartsAreReplacedOneByOne) {
    struct Case {
        std::string bytes;
        std::string repaired;
    };
    const std::vector<Case> cases = {
        {"\x80"s, replacement},
        {"a\xFFz"s, "a" + replacement + "z"},
        // Overlong forms, a surrogate and a code point beyond the last: the first bytes are
        // invalid.
        {"\xC0\xAF"s, replacement + replacement},
        {"\xE0\x80\xAF"s, replacement + replacement + replacement},
        {"\xED\xA0\x80"s, replacement + replacement + replacement},
        {"\xF4\x90\x80\x80"s, replacement + replacement + replacement + replacement},
        // A truncated sequence is one ill-formed part, at the end and before other text.
        {"\xF0\x9F\x98"s, replacement},
        {"\xE4\xB8"s, replacement},
        {"ok \xF0\x9F\x98!"s, "ok " + replacement + "!"},
        {"\xE4\xB8\xE4\xB8\xAD"s, replacement + "\u4E2D"},
        {"\xC3"s, replacement},
        {"nul \0 \xC3"s, "nul \0 "s + replacement},
    };
    for (const auto& [bytes, repaired] : cases) {
        EXPECT_FALSE(isValidUTF8(bytes)) << testing::PrintToString(bytes);
        EXPECT_EQ(repairedUTF8(bytes), repaired) << testing::PrintToString(bytes);
    }
}

TEST(TextTest, AnIllFormedByteIsFoundAtEveryPosition) {
    for (std::size_t length = 1; length < 40; ++length) {
        for (std::size_t position = 0; position < length; ++position) {
            std::string text(length, 'a');
            text[position] = '\xFE';
            EXPECT_FALSE(isValidUTF8(text));
            std::string expected(length, 'a');
            expected.replace(position, 1, replacement);
            EXPECT_EQ(repairedUTF8(text), expected);
        }
    }
}

TEST(TextTest, RepairedRandomBytesAreAlwaysValid) {
    std::mt19937 random(1);
    for (int i = 0; i < 20'000; ++i) {
        std::string bytes(random() % 32, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random() % 0x100);
        }
        const std::string repaired = repairedUTF8(bytes);
        EXPECT_TRUE(isValidUTF8(repaired));
        EXPECT_EQ(repaired == bytes, isValidUTF8(bytes));
    }
}

TEST(TextTest, WhiteSpaceAndLineSeparatorsAreTrimmedAtBothEnds) {
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed(" \t\n\v\f\r"), "");
    EXPECT_EQ(trimmed(" \r\nin side\n "), "in side");
    EXPECT_EQ(
        trimmed("\u0085\u00A0\u1680\u2003\u2028\u2029\u202F\u205F\u3000x\u3000\u2029\u00A0"), "x");
    EXPECT_EQ(trimmed("\u2028\u2029"), "");
}

TEST(TextTest, InvisibleCharactersAreNotTrimmed) {
    for (const std::string& text : {"\u200B"s, "\uFEFF"s, "\0"s, "\x1F"s, "\u2800"s}) {
        EXPECT_EQ(trimmed(text), text);
    }
}

TEST(TextTest, IllFormedEndsAreNotTrimmed) {
    EXPECT_EQ(trimmed("\xA0 \x80"), "\xA0 \x80");
    EXPECT_EQ(trimmed(" \xE2\x80 "), "\xE2\x80");
}

TEST(TextTest, LowerCasingFollowsTheRootLocale) {
    EXPECT_EQ(lowercased(""), "");
    EXPECT_EQ(lowercased("A.Person@Example.COM"), "a.person@example.com");
    EXPECT_EQ(lowercased("@[`{"), "@[`{");
    EXPECT_EQ(lowercased("I\u0130"), "ii\u0307");
    EXPECT_EQ(lowercased("STRASSE \u1E9E \u00C9"), "strasse \u00DF \u00E9");
    // Whether sigma has its final form depends on the neighbouring characters.
    EXPECT_EQ(lowercased("\u039F\u03A3 \u03A3\u039F"), "\u03BF\u03C2 \u03C3\u03BF");
    EXPECT_EQ(lowercased("\U00010400"), "\U00010428");
    EXPECT_EQ(lowercased("A\0B"s), "a\0b"s);
    EXPECT_EQ(lowercased("\u00C9\0B"s), "\u00E9\0b"s);
}

TEST(TextTest, TheASCIIPathAgreesWithTheUnicodeRules) {
    std::mt19937 random(2);
    for (int i = 0; i < 50'000; ++i) {
        const std::string text = randomASCII(random);
        EXPECT_EQ(trimmed(text), unicode_rules::trimmed(text));
        EXPECT_EQ(lowercased(text), unicode_rules::lowercased(text));
    }
}

TEST(TextTest, APrefixCountsCharactersNotBytes) {
    const std::string text = "a\u00E9\u4E2D\U0001F600z";
    EXPECT_EQ(prefix(text, 0), "");
    EXPECT_EQ(prefix(text, 1), "a");
    EXPECT_EQ(prefix(text, 2), "a\u00E9");
    EXPECT_EQ(prefix(text, 3), "a\u00E9\u4E2D");
    EXPECT_EQ(prefix(text, 4), "a\u00E9\u4E2D\U0001F600");
    EXPECT_EQ(prefix(text, 5), text);
    EXPECT_EQ(prefix(text, 500), text);
    EXPECT_EQ(prefix("a\0b"s, 2), "a\0"s);
}

TEST(TextTest, ControlCharactersHaveALength) {
    for (const std::string& text :
         {"\0"s,
          "\n"s,
          "\x1F"s,
          "\x7F"s,
          "\u0080"s,
          "\u009F"s,
          "\u061C"s,
          "\u200E"s,
          "\u200F"s,
          "\u2028"s,
          "\u2029"s,
          "\u202A"s,
          "\u202E"s,
          "\u2066"s,
          "\u2069"s}) {
        EXPECT_EQ(controlCharacterLength(text + "x"), text.size()) << testing::PrintToString(text);
    }
    for (const std::string& text :
         {""s,
          " "s,
          "~"s,
          "\u00A0"s,
          "\u00C2"s,
          "\u061B"s,
          "\u200D"s,
          "\u2010"s,
          "\u2027"s,
          "\u202F"s,
          "\u2065"s,
          "\u206A"s,
          "\uFEFF"s,
          "\xC2"s,
          "\xE2\x80"s,
          "\x85"s}) {
        EXPECT_EQ(controlCharacterLength(text), 0U) << testing::PrintToString(text);
    }
}

TEST(TextTest, OrdinaryTextIsShownUnchanged) {
    for (const std::string& text :
         {""s,
          "INVALID_REFRESH_TOKEN"s,
          "<html>\r\n\t<p>502</p>\n</html>\r\n"s,
          "Zugang gesperrt f\u00FCr heute \U0001F468\u200D\U0001F469\u200D\U0001F467"s,
          "\u05E9\u05DC\u05D5\u05DD"s}) {
        EXPECT_EQ(shownText(text), text);
    }
}

TEST(TextTest, ControlCharactersAreShownAsReplacements) {
    EXPECT_EQ(
        shownText("a\0b\x1B[2J\x7F\u009Bc\u202Ed\u2028e\rf\r\ng"s),
        "a\uFFFDb\uFFFD[2J\uFFFD\uFFFDc\uFFFDd\uFFFDe\uFFFDf\r\ng");
    EXPECT_EQ(shownText("a\xFF"), "a\uFFFD");
}

TEST(TextTest, ShownTextIsCutBetweenCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    std::string text;
    for (int i = 0; i < 600; ++i) {
        text += family;
    }
    EXPECT_EQ(shownText(text), text.substr(0, 500 * family.size()));
    EXPECT_EQ(shownText(text, 2), family + family);
    EXPECT_EQ(shownText(std::string(500, 'x') + "\r\n"), std::string(500, 'x'));
    EXPECT_EQ(shownText(std::string(499, 'x') + "\r\n!"), std::string(499, 'x') + "\r\n");
}

TEST(TextTest, ShownTextHasALimitedNumberOfBytes) {
    std::string text = "x";
    while (text.size() < 1'000'000) {
        text += "\u0301";
    }
    const std::string shown = shownText(text);
    EXPECT_LE(shown.size(), 32'000U);
    EXPECT_GT(shown.size(), 31'000U);
    EXPECT_TRUE(text.starts_with(shown));
    EXPECT_EQ(shownText(std::string(1'000'000, '\x80')).substr(0, 6), "\uFFFD\uFFFD");
}

TEST(TextTest, OneLineHasSpacesForControlCharacters) {
    EXPECT_EQ(onOneLine("a\nb\tc\x1B[2J\u009Bd\u202Ee\u2028"), "a b c [2J d e ");
    EXPECT_EQ(onOneLine("f\u00FCr \U0001F600"), "f\u00FCr \U0001F600");
}

TEST(TextTest, OneByteOrderMarkIsSkipped) {
    EXPECT_EQ(withoutByteOrderMark("\uFEFFa"), "a");
    EXPECT_EQ(withoutByteOrderMark("a\uFEFF"), "a\uFEFF");
    EXPECT_EQ(withoutByteOrderMark("\uFEFF\uFEFF"), "\uFEFF");
    EXPECT_EQ(withoutByteOrderMark("\xEF\xBB"), "\xEF\xBB");
}

} // namespace tavrin
