// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/QueryItems.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using Items = std::vector<QueryItem>;

std::string encoded(std::string value) {
    const Items items = {{"", std::move(value)}};
    return percentEncodedQuery(items).substr(1);
}

} // namespace

TEST(QueryItemsTest, ValidCharactersAreUnchanged) {
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    EXPECT_EQ(encoded(letters), letters);
    EXPECT_EQ(encoded("0123456789-._~"), "0123456789-._~");
    EXPECT_EQ(encoded("!$'()*,:@?"), "!$'()*,:@?");
    EXPECT_EQ(encoded("+"), "+");
}

TEST(QueryItemsTest, EverythingElseIsPercentEncodedInUpperCase) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {" ", "%20"},
        {"=", "%3D"},
        {"&", "%26"},
        {"%", "%25"},
        {";", "%3B"},
        {"/", "%2F"},
        {"#", "%23"},
        {"\"", "%22"},
        {"<>", "%3C%3E"},
        {"[]", "%5B%5D"},
        {"{}", "%7B%7D"},
        {"\\^`|", "%5C%5E%60%7C"},
        {"\n", "%0A"},
        {"\x7F", "%7F"},
        {std::string(1, '\0'), "%00"},
        {"ä", "%C3%A4"},
        {"€", "%E2%82%AC"},
        {"😀", "%F0%9F%98%80"}};
    for (const auto& [text, expected] : table) {
        EXPECT_EQ(encoded(text), expected);
    }
}

TEST(QueryItemsTest, ItemsKeepTheirOrderAndNamesAreEncodedToo) {
    const Items items = {{"b&", "1 2"}, {"a", std::nullopt}, {"c=", ""}, {"b&", "3"}};
    EXPECT_EQ(percentEncodedQuery(items), "b%26=1%202&a&c%3D=&b%26=3");
    EXPECT_EQ(percentEncodedQuery({}), "");
}

TEST(QueryItemsTest, EmptyItemsKeepTheirPlace) {
    const Items items = {{"", std::nullopt}, {"", std::nullopt}, {"a", std::nullopt}};
    EXPECT_EQ(percentEncodedQuery(items), "&&a");
    EXPECT_EQ(queryItems("orvelagent://callback?" + percentEncodedQuery(items)), items);
}

TEST(QueryItemsTest, EncodedItemsAreDecoded) {
    std::string everything;
    for (char character = 1; character < 127; ++character) {
        everything += character;
    }
    const Items items = {{everything, everything + "ä€😀"}, {"x", std::nullopt}, {"y", ""}};
    EXPECT_EQ(queryItems("https://web.test.example/link?" + percentEncodedQuery(items)), items);
}

TEST(QueryItemsTest, ItemsOfACallbackAreDecoded) {
    const Items expected = {{"code", "a b/c=d&e"}, {"state", "x"}};
    EXPECT_EQ(
        queryItems("orvelagent://callback?code=a%20b%2Fc%3Dd%26e&state=x#fragment"), expected);
}

TEST(QueryItemsTest, APlusIsNotASpace) {
    const Items expected = {{"code", "a+b+c"}};
    EXPECT_EQ(queryItems("orvelagent://callback?code=a+b%2Bc"), expected);
}

TEST(QueryItemsTest, AnItemWithoutAnEqualsSignHasNoValue) {
    const Items expected = {
        {"error", std::nullopt}, {"code", ""}, {"token", "a=b"}, {"", std::nullopt}, {"", "x"}};
    EXPECT_EQ(queryItems("orvelagent://callback?error&code=&token=a=b&&=x"), expected);
}

TEST(QueryItemsTest, AURLWithoutAQueryHasNoItems) {
    EXPECT_EQ(queryItems("orvelagent://callback"), Items());
    EXPECT_EQ(queryItems("orvelagent:"), Items());
}

TEST(QueryItemsTest, AnInvalidURLHasNoResult) {
    for (const char* text :
         {"",
          "not a url?code=abc",
          "orvelagent://callback?code=a b",
          "orvelagent://callback?code=%zz",
          "orvelagent://callback?code=%2",
          "orvelagent://call back?code=abc",
          "https://[::1?code=abc",
          "://callback?code=abc",
          "orvelagent://callback?code=\"abc\"",
          "orvelagent://callback?code=a\nb"}) {
        EXPECT_FALSE(queryItems(text)) << text;
    }
}

TEST(QueryItemsTest, IllFormedTextIsRepaired) {
    const Items expected = {{"code", "a\uFFFD"}, {"x", "y"}};
    EXPECT_EQ(queryItems("orvelagent://callback?code=a%FF&x=y"), expected);
}

TEST(QueryItemsTest, ALongQueryIsReadCompletely) {
    const std::string code(1 << 20, 'c');
    const Items expected = {{"code", code}};
    EXPECT_EQ(queryItems("orvelagent://callback?code=" + code), expected);
}

} // namespace orvel
