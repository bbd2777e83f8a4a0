// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/TypedStreamWriter.h"

#include <gmock/gmock.h>

#include <functional>

namespace orvel {
namespace {

using testing::ElementsAre;

/// The bytes that a writer adds to the header.
std::vector<std::uint8_t> written(const std::function<void(TypedStreamWriter&)>& write) {
    const std::size_t header = TypedStreamWriter().take().size();
    TypedStreamWriter writer;
    write(writer);
    std::vector<std::uint8_t> bytes = writer.take();
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(header));
    return bytes;
}

TEST(TypedStreamWriterTest, BeginsWithTheHeader) {
    EXPECT_THAT(
        TypedStreamWriter().take(),
        ElementsAre(
            4, 11, 's', 't', 'r', 'e', 'a', 'm', 't', 'y', 'p', 'e', 'd', 0x81, 0xE8, 0x03));
}

TEST(TypedStreamWriterTest, WritesLengthsInOneTwoOrFourBytes) {
    const auto length = [](std::uint32_t value) {
        return written([=](TypedStreamWriter& writer) { writer.writeLength(value); });
    };
    EXPECT_THAT(length(0), ElementsAre(0x00));
    EXPECT_THAT(length(0x7F), ElementsAre(0x7F));
    EXPECT_THAT(length(0x80), ElementsAre(0x81, 0x80, 0x00));
    EXPECT_THAT(length(0xFFFF), ElementsAre(0x81, 0xFF, 0xFF));
    EXPECT_THAT(length(0x10000), ElementsAre(0x82, 0x00, 0x00, 0x01, 0x00));
}

TEST(TypedStreamWriterTest, WritesIntegersThatLookLikeMarksInFull) {
    const auto integer = [](std::int32_t value) {
        return written([=](TypedStreamWriter& writer) { writer.writeInteger(value); });
    };
    EXPECT_THAT(integer(127), ElementsAre(0x7F));
    EXPECT_THAT(integer(128), ElementsAre(0x81, 0x80, 0x00));
    EXPECT_THAT(integer(-110), ElementsAre(0x92));
    EXPECT_THAT(integer(-111), ElementsAre(0x81, 0x91, 0xFF));
    EXPECT_THAT(integer(32'768), ElementsAre(0x82, 0x00, 0x80, 0x00, 0x00));
}

TEST(TypedStreamWriterTest, WritesATypeOnceAndThenByNumber) {
    const auto types = written([](TypedStreamWriter& writer) {
        writer.writeType("@");
        writer.writeType("iI");
        writer.writeType("iI");
        writer.writeType("@");
    });
    EXPECT_THAT(types, ElementsAre(0x84, 1, '@', 0x84, 2, 'i', 'I', 0x93, 0x92));
}

TEST(TypedStreamWriterTest, WritesAClassOnceAndThenByNumber) {
    const auto objects = written([](TypedStreamWriter& writer) {
        writer.beginObject({{"Leaf", 1}, {"Root", 0}});
        writer.endObject();
        writer.beginObject({{"Leaf", 1}, {"Root", 0}});
        writer.endObject();
        writer.beginObject({{"Twig", 2}, {"Root", 0}});
        writer.endObject();
    });
    // Each object follows its type. Number 0 is the object, 1 its class and 2 the root class.
    EXPECT_THAT(
        objects,
        ElementsAre(
            0x84,
            1,
            '@',
            0x84,
            0x84,
            0x84,
            4,
            'L',
            'e',
            'a',
            'f',
            1,
            0x84,
            0x84,
            4,
            'R',
            'o',
            'o',
            't',
            0,
            0x85,
            0x86, //
            0x92,
            0x84,
            0x93,
            0x86, //
            0x92,
            0x84,
            0x84,
            0x84,
            4,
            'T',
            'w',
            'i',
            'g',
            2,
            0x94,
            0x86));
}

TEST(TypedStreamWriterTest, RefersToAnObjectByItsNumber) {
    const auto reference = written([](TypedStreamWriter& writer) {
        writer.beginObject({});
        const std::size_t second = writer.beginObject({});
        writer.writeReference(second);
    });
    EXPECT_EQ(reference.back(), 0x93);
}

} // namespace
} // namespace orvel
