// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"

#include <boost/json.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tavrin {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;
using testing::ThrowsMessage;

boost::json::value parse(std::string_view text) {
    return boost::json::parse(text);
}

} // namespace

TEST(JSONTest, ReadsEveryType) {
    const boost::json::value json =
        parse(R"({"s":"text","i":-5,"b":true,"l":["a","b"],"none":[],"o":{"k":1}})");
    const boost::json::object& object = asObject(json);
    EXPECT_EQ(stringAt(object, "s"), "text");
    EXPECT_EQ(integerAt(object, "i"), -5);
    EXPECT_TRUE(booleanAt(object, "b"));
    EXPECT_THAT(stringsAt(object, "l"), ElementsAre("a", "b"));
    EXPECT_THAT(stringsAt(object, "none"), IsEmpty());
    EXPECT_EQ(integerAt(objectAt(object, "o"), "k"), 1);
    EXPECT_EQ(optionalStringAt(object, "s"), "text");
    EXPECT_EQ(optionalIntegerAt(object, "i"), -5);
}

TEST(JSONTest, KeepsAnEmbeddedNUL) {
    const boost::json::value json = parse(R"({"s":"a\u0000b"})");
    EXPECT_EQ(stringAt(asObject(json), "s"), std::string("a\0b", 3));
}

TEST(JSONTest, AMissingKeyIsAnErrorUnlessOptional) {
    const boost::json::object object;
    const auto missing = ThrowsMessage<JSONDecodingError>(StrEq("The JSON key \"k\" is missing."));
    EXPECT_THAT([&] { static_cast<void>(stringAt(object, "k")); }, missing);
    EXPECT_THAT([&] { static_cast<void>(integerAt(object, "k")); }, missing);
    EXPECT_THAT([&] { static_cast<void>(booleanAt(object, "k")); }, missing);
    EXPECT_THAT([&] { static_cast<void>(stringsAt(object, "k")); }, missing);
    EXPECT_THAT([&] { static_cast<void>(objectAt(object, "k")); }, missing);
    EXPECT_EQ(optionalStringAt(object, "k"), std::nullopt);
    EXPECT_EQ(optionalIntegerAt(object, "k"), std::nullopt);
}

TEST(JSONTest, NullIsNoValueOnlyWhereOptional) {
    const boost::json::value json = parse(R"({"k":null})");
    const boost::json::object& object = asObject(json);
    EXPECT_EQ(optionalStringAt(object, "k"), std::nullopt);
    EXPECT_EQ(optionalIntegerAt(object, "k"), std::nullopt);
    EXPECT_THROW(static_cast<void>(stringAt(object, "k")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(integerAt(object, "k")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(booleanAt(object, "k")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(stringsAt(object, "k")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(objectAt(object, "k")), JSONDecodingError);
}

TEST(JSONTest, AValueOfAnotherTypeIsAnError) {
    const boost::json::value json =
        parse(R"({"s":"1","i":1,"b":true,"l":["a"],"o":{},"mixed":["a",1]})");
    const boost::json::object& object = asObject(json);
    EXPECT_THROW(static_cast<void>(stringAt(object, "i")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(integerAt(object, "s")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(integerAt(object, "b")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(booleanAt(object, "i")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(stringsAt(object, "s")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(stringsAt(object, "mixed")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(objectAt(object, "l")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(optionalStringAt(object, "o")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(optionalIntegerAt(object, "l")), JSONDecodingError);
    EXPECT_THROW(static_cast<void>(asObject(parse("[]"))), JSONDecodingError);
}

TEST(JSONTest, IntegersHaveSixtyFourBitsAndNoFraction) {
    const boost::json::value json = parse(
        R"({"greatest":9223372036854775807,"least":-9223372036854775808,"point":5.0,
            "beyond":9223372036854775808,"power":9.223372036854775808e18,"half":1.5,"far":1e300})");
    const boost::json::object& object = asObject(json);
    EXPECT_EQ(integerAt(object, "greatest"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(integerAt(object, "least"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(integerAt(object, "point"), 5);
    for (const char* key : {"beyond", "power", "half", "far"}) {
        EXPECT_THROW(static_cast<void>(integerAt(object, key)), JSONDecodingError) << key;
        EXPECT_THROW(static_cast<void>(optionalIntegerAt(object, key)), JSONDecodingError) << key;
    }
}

TEST(JSONTest, AnErrorNamesTheKeyAndNeverTheValue) {
    const boost::json::value json = parse(R"({"token":["secret"]})");
    EXPECT_THAT(
        [&] { static_cast<void>(stringAt(asObject(json), "token")); },
        ThrowsMessage<JSONDecodingError>(
            testing::AllOf(HasSubstr("\"token\""), Not(HasSubstr("secret")))));
}

} // namespace tavrin
