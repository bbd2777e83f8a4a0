// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/SecretJSON.h"

#include "OrvelAgent/network/JSONCoding.h"
#include "core/JSON.h"

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/static_resource.hpp>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

namespace orvel {

namespace {

const std::string token = "a-token-that-is-too-long-to-be-kept-inside-a-value";

/// Memory that can be read after it was freed.
struct Ground {
    std::array<unsigned char, 65536> bytes{};
    boost::json::static_resource resource{bytes.data(), bytes.size()};

    [[nodiscard]] bool holds(std::string_view text) const {
        return std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())
                   .find(text) != std::string_view::npos;
    }
};

struct Confidential {
    static constexpr bool isSecret = true;
    bool* isBuiltInWipingMemory;
};

void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const Confidential& value) {
    *value.isBuiltInWipingMemory = dynamic_cast<WipingMemory*>(json.storage().get()) != nullptr;
    json.emplace_object().emplace("token", token);
}

} // namespace

TEST(SecretJSONTest, ADestroyedTreeIsWiped) {
    Ground ground;
    {
        WipingMemory memory(&ground.resource);
        boost::json::value json(boost::json::object_kind, &memory);
        json.get_object().emplace("token", token);
        json.get_object().emplace("array", boost::json::array({token, token}));
        EXPECT_TRUE(ground.holds(token));
    }
    EXPECT_FALSE(ground.holds(token));
    EXPECT_FALSE(ground.holds("too-long"));
}

TEST(SecretJSONTest, OrdinaryMemoryIsNotWiped) {
    Ground ground;
    {
        boost::json::value json(boost::json::object_kind, &ground.resource);
        json.get_object().emplace("token", token);
    }
    EXPECT_TRUE(ground.holds(token));
}

TEST(SecretJSONTest, AParsedTreeIsInWipingMemory) {
    const boost::json::value json = parseSecretJSON(R"({"token":"a\/b","list":[{"x":1.5}]})");
    EXPECT_NE(dynamic_cast<WipingMemory*>(json.storage().get()), nullptr);
    EXPECT_EQ(json, boost::json::parse(R"({"token":"a/b","list":[{"x":1.5}]})"));
    const boost::json::value& inner = json.at("list").at(0);
    EXPECT_EQ(inner.storage().get(), json.storage().get());
}

TEST(SecretJSONTest, TheErrorDoesNotQuoteInvalidJSON) {
    for (const std::string& text :
         {token,
          "{\"token\":\"" + token,
          "{\"token\":\"" + token + "\"",
          "{\"token\":\"" + token + "\"} " + token,
          std::string(),
          std::string(100, '[') + std::string(100, ']'),
          std::string("\"\xFF\"")}) {
        try {
            static_cast<void>(parseSecretJSON(text));
            ADD_FAILURE() << "no error: " << text;
        } catch (const tavrin::JSONDecodingError& error) {
            const std::string_view description = error.what();
            EXPECT_TRUE(description.starts_with("The text is not JSON: ")) << description;
            EXPECT_EQ(description.find("token"), std::string_view::npos) << description;
        }
    }
}

TEST(SecretJSONTest, TreesOfAnySizeAreSerialized) {
    for (const std::size_t size : {0U, 500U, 510U, 511U, 512U, 5000U}) {
        const boost::json::value json = {{"token", std::string(size, 'x')}, {"yes", true}};
        EXPECT_EQ(
            serializeSecretJSON(json),
            "{\"token\":\"" + std::string(size, 'x') + "\",\"yes\":true}");
    }
}

TEST(SecretJSONTest, ABodyWithSecretsIsEncodedInWipingMemory) {
    bool isBuiltInWipingMemory = false;
    EXPECT_EQ(
        JSONEncoder().encode(Confidential{&isBuiltInWipingMemory}),
        "{\"token\":\"" + token + "\"}");
    EXPECT_TRUE(isBuiltInWipingMemory);
}

} // namespace orvel
