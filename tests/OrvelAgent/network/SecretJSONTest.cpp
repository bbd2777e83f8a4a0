// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/SecretJSON.h"

#include "OrvelAgent/network/JSONCoding.h"
#include "core/JSON.h"

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/static_resource.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <new>
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

/// Counts the bytes that it hands out.
class CountingMemory final : public boost::json::memory_resource {
public:
    std::size_t used = 0;
    std::size_t peak = 0;

private:
    void* do_allocate(std::size_t size, std::size_t alignment) override {
        used += size;
        peak = std::max(peak, used);
        return ::operator new(size, std::align_val_t(alignment));
    }
    void do_deallocate(void* bytes, std::size_t size, std::size_t alignment) override {
        used -= size;
        ::operator delete(bytes, std::align_val_t(alignment));
    }
    [[nodiscard]] bool do_is_equal(const memory_resource& other) const noexcept override {
        return this == &other;
    }
};

/// The most bytes in use while the text is parsed, if it can be.
std::size_t peakOfParsing(std::string_view text, bool isParsed) {
    CountingMemory memory;
    try {
        static_cast<void>(parseSecretJSON(text, &memory));
        EXPECT_TRUE(isParsed);
    } catch (const tavrin::JSONDecodingError& error) {
        EXPECT_FALSE(isParsed) << error.what();
    }
    EXPECT_EQ(memory.used, 0U);
    return memory.peak;
}

std::string repeated(std::string_view part, std::size_t size, std::string end) {
    std::string text = "[";
    text.reserve(size);
    while (text.size() + part.size() + end.size() < size) {
        text += part;
    }
    return text + end;
}

constexpr std::size_t longestReply = std::size_t{16} << 20U;

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
    EXPECT_EQ(json, boost::json::parse(R"({"token":"a/b","list":[{"x":1.5}]})"));
    const boost::json::value& inner = json.at("list").at(0);
    EXPECT_EQ(inner.storage().get(), json.storage().get());

    Ground ground;
    {
        const boost::json::value secret =
            parseSecretJSON("{\"token\":\"" + token + "\"}", &ground.resource);
        EXPECT_TRUE(ground.holds(token));
    }
    EXPECT_FALSE(ground.holds(token));
    EXPECT_FALSE(ground.holds("too-long"));
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

TEST(SecretJSONTest, ManySmallValuesDoNotUseMuchMemory) {
    const std::size_t limit = std::size_t{100} << 20U;
    EXPECT_LE(peakOfParsing(repeated("0,", longestReply, "0]"), false), limit);
    EXPECT_LE(peakOfParsing(repeated("[],", longestReply, "0]"), false), limit);
    EXPECT_LE(peakOfParsing(repeated("{},", longestReply, "0]"), false), limit);
    EXPECT_LE(peakOfParsing(repeated("\"\",", longestReply, "0]"), false), limit);
}

TEST(SecretJSONTest, TheLongestListOfHandlesIsParsed) {
    const std::size_t limit = maximumJSONMemory(longestReply);
    EXPECT_LE(peakOfParsing(repeated("\"4155550134\",", longestReply, "\"\"]"), true), limit);
    EXPECT_LE(
        peakOfParsing(repeated("\"someone@mail.example\",", longestReply, "\"\"]"), true), limit);
}

TEST(SecretJSONTest, AShortTextOfSmallValuesIsParsed) {
    EXPECT_LE(peakOfParsing(repeated("0,", 20'000, "0]"), true), maximumJSONMemory(20'000));
}

TEST(SecretJSONTest, ThirtyTwoLevelsAreParsed) {
    static_cast<void>(peakOfParsing(std::string(32, '[') + std::string(32, ']'), true));
    static_cast<void>(peakOfParsing(std::string(33, '[') + std::string(33, ']'), false));
}

TEST(SecretJSONTest, AByteOrderMarkIsSkipped) {
    EXPECT_EQ(parseSecretJSON("\uFEFF[1]"), boost::json::parse("[1]"));
    EXPECT_THROW(static_cast<void>(parseSecretJSON("\uFEFF\uFEFF[1]")), tavrin::JSONDecodingError);
    EXPECT_THROW(static_cast<void>(parseSecretJSON("\uFEFF")), tavrin::JSONDecodingError);
}

} // namespace orvel
