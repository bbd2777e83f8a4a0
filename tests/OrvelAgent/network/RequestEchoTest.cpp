// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/RequestEcho.h"

#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

namespace orvel {

namespace {

RequestEcho echoOf(std::string_view value) {
    RequestEcho echo;
    echo.add(value);
    return echo;
}

RequestEcho echoOfSecret(std::string_view value) {
    RequestEcho echo;
    echo.addSecret(value);
    return echo;
}

} // namespace

TEST(RequestEchoTest, ALongValueIsFoundInEveryForm) {
    const RequestEcho echo = echoOf("Tea & \"cake\"\nfor Zo\u00EB \U0001F382");
    for (const std::string& text :
         {std::string("Tea & \"cake\"\nfor Zo\u00EB \U0001F382"),
          std::string(R"(x Tea & \"cake\"\nfor Zo\u00eb \ud83c\udf82 y)"),
          std::string(R"(Tea \u0026 \"cake\"\nfor Zo\u00EB \uD83C\uDF82)"),
          std::string("Tea &amp; &quot;cake&quot; for Zo&#235; &#x1F382;"),
          std::string("Tea &amp;amp; &amp;quot;cake&amp;quot; for Zo&amp;#xEB; \U0001F382"),
          std::string("Tea%20%26%20%22cake%22%0Afor%20Zo%C3%AB%20%F0%9F%8E%82"),
          std::string("Tea+%26+%22cake%22%0afor+Zo%c3%ab+%f0%9f%8e%82"),
          std::string(R"(Tea & \x22cake\x22\x0afor Zo\xc3\xab \xf0\x9f\x8e\x82)"),
          std::string(
              R"({"log":"{\"body\":\"Tea & \\\"cake\\\"\\nfor Zo\\u00eb \\ud83c\\udf82\"}"})"),
          std::string("Tea &\n    cake for\n    Zo\u00EB \U0001F382")}) {
        EXPECT_TRUE(echo.isIn(text)) << text;
    }
    for (const char* text :
         {"", "Tea", "Tea & cookies for you", "&;&#;&#x;%%4%\\\\u12\\x&amp", "\\ud83c\\u"}) {
        EXPECT_FALSE(echo.isIn(text)) << text;
    }
}

TEST(RequestEchoTest, AValueThatLooksEscapedIsFound) {
    const RequestEcho echo = echoOf(R"(100%25 &amp; C:\new\u0041\folder)");
    EXPECT_TRUE(echo.isIn(R"(100%25 &amp; C:\new\u0041\folder)"));
    EXPECT_TRUE(echo.isIn(R"({"a":"100%25 &amp; C:\\new\\u0041\\folder"})"));
    EXPECT_TRUE(echo.isIn(R"(<p>100%25 &amp;amp; C:\new\u0041\folder</p>)"));
}

TEST(RequestEchoTest, APartOfALongValueIsFound) {
    const RequestEcho echo = echoOf("the first train leaves at six in the morning");
    EXPECT_TRUE(echo.isIn("near \"train leaves at six\""));
    EXPECT_TRUE(echo.isIn("the first train leaves..."));
    EXPECT_FALSE(echo.isIn("the morning train"));
}

TEST(RequestEchoTest, AShortValueCountsOnlyAsAWhole) {
    const RequestEcho echo = echoOf("ok");
    for (const char* text :
         {R"(bad text "ok")",
          "bad text 'ok'",
          "`ok`",
          "<b> ok </b>",
          R"(\"ok\")",
          "&quot;ok&quot;"}) {
        EXPECT_TRUE(echo.isIn(text)) << text;
    }
    for (const char* text :
         {"ok", "a token", R"({"ok":false})", R"({ "ok" : false })", "<ok>", "<b>not ok</b>"}) {
        EXPECT_FALSE(echo.isIn(text)) << text;
    }
}

TEST(RequestEchoTest, AShortNumberCountsAsAWord) {
    const RequestEcho echo = echoOf("+72645");
    EXPECT_TRUE(echo.isIn("72645 is not known"));
    EXPECT_FALSE(echo.isIn("1726450"));
    EXPECT_FALSE(echoOf("8").isIn("8 of 9"));
}

TEST(RequestEchoTest, ASingleWordBelowSixteenLettersIsNoEcho) {
    EXPECT_FALSE(echoOf("unavailable").isIn("The service is unavailable."));
    EXPECT_TRUE(echoOf("unavailable").isIn("The text \"unavailable\" is not allowed."));
    EXPECT_TRUE(echoOf("Donaudampfschiffahrt").isIn("no Donaudampfschiffahrt here"));
}

TEST(RequestEchoTest, AShortValueIsTakenOutInEveryForm) {
    const struct {
        const char* value;
        const char* text;
        const char* rest;
    } cases[] = {
        {"I'm ill", "cannot parse I'm ill here", "cannot parse [\u2026] here"},
        {"I'm ill", R"(near I\u0027m ill.)", "near [\u2026]."},
        {"I'm ill", "near I&#39;m\n  ill.", "near [\u2026]."},
        {"I'm ill", "text=I%27m+ill&x=1", "text=[\u2026]&x=1"},
        {"a@b.co", "unknown handle A@B.CO", "unknown handle [\u2026]"},
        {"a@b.co", "mailto:a%40b.co rejected", "mailto:[\u2026] rejected"},
        {"pregnant", "Message pregnant rejected", "Message [\u2026] rejected"},
        {"Pregnant!", "Message PREGNANT rejected", "Message [\u2026] rejected"},
        {"12:30", "no date at 12:30 or 112:30", "no date at [\u2026] or 112:30"},
        {"Ann Lee", "Ann Lee and Ann Leeson", "[\u2026] and Ann Leeson"},
        {"na\u00EFve", "not naive but na%C3%AFve", "not naive but [\u2026]"},
        {"\u4F60", "x\u4F60\u597Dy", "x[\u2026]\u597Dy"},
        {"\U0001F382", R"(bad \ud83c\udf82\ud83c\udf82)", "bad [\u2026][\u2026]"}};
    for (const auto& [value, text, rest] : cases) {
        EXPECT_EQ(echoOf(value).takenOutOf(text), rest) << text;
    }
}

TEST(RequestEchoTest, ATextOfShortValuesOnlyIsNotShown) {
    EXPECT_EQ(echoOf("I'm ill").takenOutOf("(I'm ill)"), "");
    EXPECT_EQ(echoOf("I'm ill").takenOutOf("say \"I'm ill\""), "");
    EXPECT_EQ(echoOf("a text that is long").takenOutOf("no: a text that is long"), "");
}

TEST(RequestEchoTest, AWordOfThreeLettersIsNotTakenOut) {
    for (const char* value : {"ok", "No", "no!", "Bad", "a", "502"}) {
        for (const char* text : {"No such user", "ok", "502 Bad Gateway", "No!", ":-("}) {
            EXPECT_EQ(echoOf(value).takenOutOf(text), text) << value;
        }
    }
}

TEST(RequestEchoTest, ShortValuesAreTakenOutOfALongText) {
    const RequestEcho echo = echoOf("I'm ill");
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "x I&#39;m ill ";
    }
    const std::string rest = echo.takenOutOf(text);
    EXPECT_GT(rest.size(), 32'000U);
    EXPECT_EQ(rest.find("ill"), std::string::npos);
}

TEST(RequestEchoTest, EachOfManyValuesWithACommonStartIsFound) {
    RequestEcho echo;
    for (int i = 10; i < 60; ++i) {
        echo.add("+14155550" + std::to_string(i) + "1");
        echo.add("see you at the station at noon, track " + std::to_string(i));
    }
    for (int i = 10; i < 60; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_TRUE(echo.isIn("unknown handle +14155550" + number + "1.")) << i;
        EXPECT_TRUE(echo.isIn("unknown handle 4155550" + number + "1.")) << i;
        EXPECT_TRUE(echo.isIn("near \"station at noon, track " + number + "\"")) << i;
    }
    EXPECT_FALSE(echo.isIn("unknown handle +14155550621"));
}

TEST(RequestEchoTest, ALongValueIsFoundInCapitals) {
    EXPECT_TRUE(echoOf("ann.lee@example.com").isIn("unknown handle ANN.LEE@EXAMPLE.COM"));
}

TEST(RequestEchoTest, ANumberWithoutItsCountryCodeIsFound) {
    EXPECT_TRUE(echoOf("+1 (415) 555-0134").isIn("unknown number 4155550134"));
    EXPECT_TRUE(echoOf("+14155550134").isIn("unknown number 415-555-0134"));
}

TEST(RequestEchoTest, ASecretIsFoundAnywhereAndAShortOneAsAWord) {
    EXPECT_TRUE(echoOfSecret("id-token").isIn("xid-tokenx"));
    EXPECT_FALSE(echoOfSecret("id-token").isIn("INVALID_ID_TOKEN, id token"));
    EXPECT_TRUE(echoOfSecret("key").isIn("bad key"));
    EXPECT_FALSE(echoOfSecret("key").isIn("bad keyword, monkey"));
    EXPECT_FALSE(echoOfSecret("").isIn("anything"));
    EXPECT_TRUE(
        echoOfSecret("AMf-vBx0123456789abcdefghijklmnopqrstuv").isIn("token=0123456789abcdefg..."));
}

TEST(RequestEchoTest, ASecretIsFoundBehindTheStartOfAnEscape) {
    const RequestEcho echo = echoOfSecret("a-token-in-words");
    EXPECT_TRUE(echo.isIn("invalid: %aa-token-in-words"));
    EXPECT_TRUE(echo.isIn("invalid: \\xfa-token-in-words"));
    EXPECT_TRUE(echo.isIn("invalid: %61-token-in-words"));
}

TEST(RequestEchoTest, StringsOfATreeCountButNotItsKeysAndPublicValues) {
    const boost::json::value tree = {
        {"client", "mac/1.2.3.4567"},
        {"secretlyLongKey123", {{"list", {"a value that is long", 7, nullptr}}}}};
    RequestEcho echo;
    echo.addStrings(tree, std::array<std::string_view, 1>{"client"});
    EXPECT_TRUE(echo.isIn("x a value that is long x"));
    EXPECT_FALSE(echo.isIn("mac/1.2.3.4567 secretlyLongKey123"));
    echo.addSecretStrings(tree);
    EXPECT_TRUE(echo.isIn("mac/1.2.3.4567"));
}

TEST(RequestEchoTest, ManyEqualBytesAreNotSlow) {
    RequestEcho echo;
    for (int i = 0; i < 500; ++i) {
        echo.add(std::string(8000, 'a') + std::to_string(i));
    }
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "aaaaaaaaaab";
    }
    EXPECT_FALSE(echo.isIn(text));
}

} // namespace orvel
