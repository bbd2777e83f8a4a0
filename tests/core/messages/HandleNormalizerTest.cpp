// SPDX-License-Identifier: Apache-2.0
#include "core/messages/HandleNormalizer.h"

#include "core/UnicodeRules.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace tavrin {

namespace {

std::optional<std::string> hintOf(std::string_view raw) {
    return HandleNormalizer::matchHint(Handle::classify(raw));
}

} // namespace

TEST(HandleNormalizerTest, OnlyDigitsAreKept) {
    EXPECT_EQ(HandleNormalizer::phoneDigits(""), "");
    EXPECT_EQ(HandleNormalizer::phoneDigits("no digits +()-"), "");
    EXPECT_EQ(HandleNormalizer::phoneDigits("+44 20 7946 0958"), "442079460958");
    EXPECT_EQ(
        HandleNormalizer::phoneDigits("12\xFF"
                                      "3\xC3"),
        "123");
}

TEST(HandleNormalizerTest, ANorthAmericanNumberLosesItsCountryCode) {
    EXPECT_EQ(hintOf("+1 (415) 555-0134"), "4155550134");
    EXPECT_EQ(hintOf("14155550134"), "4155550134");
    EXPECT_EQ(hintOf("4155550134"), "4155550134");
}

TEST(HandleNormalizerTest, OnlyElevenDigitsBeginningWithOneAreNorthAmerican) {
    EXPECT_EQ(hintOf("24155550134"), "24155550134");
    EXPECT_EQ(hintOf("141555501345"), "141555501345");
    EXPECT_EQ(hintOf("1415555013"), "1415555013");
    EXPECT_EQ(hintOf("+44 20 7946 0958"), "442079460958");
}

TEST(HandleNormalizerTest, FewerThanSevenDigitsGiveNoHint) {
    EXPECT_EQ(hintOf("555-0134"), "5550134");
    EXPECT_EQ(hintOf("55-0134"), std::nullopt);
    EXPECT_EQ(hintOf(""), std::nullopt);
    EXPECT_EQ(hintOf("+"), std::nullopt);
}

TEST(HandleNormalizerTest, ASenderNameIsReducedToItsDigits) {
    EXPECT_EQ(hintOf("BANK"), std::nullopt);
    EXPECT_EQ(hintOf("VM-12345"), std::nullopt);
    EXPECT_EQ(hintOf("VM-1234567"), "1234567");
}

TEST(HandleNormalizerTest, DigitsOfOtherScriptsAreKeptUnconvertedAndCountedAsCharacters) {
    // Seven Arabic-Indic digits are fourteen bytes; six are still too few.
    EXPECT_EQ(
        hintOf("\u0665\u0665\u0665-\u0660\u0661\u0663\u0664"),
        "\u0665\u0665\u0665\u0660\u0661\u0663\u0664");
    EXPECT_EQ(hintOf("\u0665\u0665-\u0660\u0661\u0663\u0664"), std::nullopt);
    // An ASCII 1 before ten other digits is the country code, a full-width 1 is not.
    EXPECT_EQ(
        hintOf("1 \uFF14\uFF11\uFF15 5550134"),
        "\uFF14\uFF11\uFF15"
        "5550134");
    EXPECT_EQ(
        hintOf("\uFF11 415 5550134"),
        "\uFF11"
        "4155550134");
    EXPECT_EQ(
        hintOf("\U0001D7CF\U0001D7CF 55501"),
        "\U0001D7CF\U0001D7CF"
        "55501");
}

TEST(HandleNormalizerTest, NumbersThatAreNotDecimalDigitsAreDropped) {
    // Superscript two, a fraction, a Roman numeral, a circled and an ideographic number.
    EXPECT_EQ(
        HandleNormalizer::phoneDigits("\u00B2\u00BD\u2163\u2460\u4E00"
                                      "9"),
        "9");
}

TEST(HandleNormalizerTest, AnAddressIsItsOwnHint) {
    EXPECT_EQ(hintOf("  A.Person@Example.COM\n"), "a.person@example.com");
    EXPECT_EQ(hintOf("@"), "@");
    EXPECT_EQ(hintOf("\u00C9milie@Example.com"), "\u00E9milie@example.com");
}

TEST(HandleNormalizerTest, AnAddressIsTrimmedAndLowerCased) {
    EXPECT_EQ(
        HandleNormalizer::matchHint(Handle(Handle::Kind::Email, " Some\u3000One \u2028")),
        "some\u3000one");
    EXPECT_EQ(HandleNormalizer::matchHint(Handle(Handle::Kind::Email, " \n\u00A0")), std::nullopt);
    EXPECT_EQ(HandleNormalizer::matchHint(Handle(Handle::Kind::Email, "")), std::nullopt);
}

TEST(HandleNormalizerTest, TheASCIIPathAgreesWithTheUnicodeRules) {
    std::mt19937 random(3);
    for (int i = 0; i < 50'000; ++i) {
        std::string text(random() % 24, '\0');
        for (char& character : text) {
            // Make half of the characters digits, because eleven in a row are rare otherwise.
            const auto value = random();
            character = static_cast<char>(value % 2 == 0 ? '0' + value / 2 % 3 : value / 2 % 0x80);
        }
        EXPECT_EQ(HandleNormalizer::phoneDigits(text), unicode_rules::phoneDigits(text)) << text;
    }
}

} // namespace tavrin
