// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/QueryItems.h"
#include "OrvelAgent/network/SecretJSON.h"
#include "core/Secret.h"
#include "tests/support/HiddenToken.h"

#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace orvel {

TEST(CopiesInMemoryTest, EncodingAQueryLeavesNoOther) {
    const test::HiddenToken token;
    std::vector<QueryItem> items;
    items.reserve(3);
    // The beginning of freed memory is soon used again.
    items.push_back({"first", std::string(60'000, '.')});
    items.push_back({"token", token.text()});
    items.push_back({"last", std::string(1000, '/')});
    std::string query = percentEncodedQuery(items);
    EXPECT_EQ(token.copiesInMemory(), 2U);
    tavrin::wipe(*items[1].value);
    tavrin::wipe(query);
    EXPECT_EQ(token.copiesInMemory(), 0U);
}

TEST(CopiesInMemoryTest, DecodingAQueryLeavesNoOther) {
    const test::HiddenToken token;
    std::string url = "orvelagent://callback?code=";
    url.reserve(1000);
    std::string text = token.text();
    url += text;
    tavrin::wipe(text);
    std::optional<std::vector<QueryItem>> items = queryItems(url);
    tavrin::wipe(url);
    ASSERT_TRUE(items);
    EXPECT_EQ(token.copiesInMemory(), 1U);
    tavrin::wipe(*items->front().value);
    EXPECT_EQ(token.copiesInMemory(), 0U);
}

TEST(CopiesInMemoryTest, ParsingAndSerializingJSONLeaveNoOther) {
    const test::HiddenToken hidden;
    std::string text;
    text.reserve(80'000);
    text += R"({"first":")" + std::string(60'000, 'x') + R"(","token":")";
    std::string part = hidden.text();
    text += part;
    tavrin::wipe(part);
    text += R"(","last":")" + std::string(8000, 'x') + R"("})";
    {
        const boost::json::value json = parseSecretJSON(text);
        std::string serialized = serializeSecretJSON(json);
        EXPECT_EQ(serialized, text);
        tavrin::wipe(serialized);
        tavrin::wipe(text);
        EXPECT_EQ(hidden.copiesInMemory(), 1U);
    }
    EXPECT_EQ(hidden.copiesInMemory(), 0U);
}

} // namespace orvel
