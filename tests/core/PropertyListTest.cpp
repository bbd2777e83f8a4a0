// SPDX-License-Identifier: Apache-2.0
#include "core/PropertyList.h"

#include "core/PropertyListScreens.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace tavrin {

namespace {

using namespace std::string_literals;

constexpr PropertyListLimits limits = {.size = 4096, .objectCount = 100, .depth = 8};

PropertyList parse(std::string_view text) {
    // Shrink the allocation to the list's size, so that the sanitizer detects reading past the end.
    std::vector<std::uint8_t> bytes(text.begin(), text.end());
    bytes.shrink_to_fit();
    return parsePropertyList(bytes, limits);
}

bool isRead(std::string_view text) {
    return parse(text) != nullptr;
}

/// libplist refuses some of these lists itself, but the screen must not rely on that.
void expectRefused(std::string binary) {
    EXPECT_FALSE(isRead(binary)) << testing::PrintToString(binary);
    EXPECT_FALSE(PropertyListScreens::passesBinary(binary, limits))
        << testing::PrintToString(binary);
}

std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string bytes(width, '\0');
    for (std::size_t i = width; i-- > 0; value >>= 8U) {
        bytes[i] = static_cast<char>(value & 0xFFU);
    }
    return bytes;
}

/// A binary list of unmodified objects. The first object is the root.
struct BinaryList {
    std::vector<std::string> objects;
    std::size_t offsetWidth = 2;
    std::size_t referenceWidth = 1;
    std::uint64_t root = 0;

    // The object count in the trailer, if it is to be wrong.
    std::optional<std::uint64_t> objectCount = std::nullopt;
    std::optional<std::uint64_t> offsetTable = std::nullopt;
    std::optional<std::vector<std::uint64_t>> offsets = std::nullopt;
    /// The first bytes of the trailer, which have no meaning.
    std::string padding = std::string(6, '\0');

    [[nodiscard]] std::string bytes() const {
        std::string result = "bplist00";
        std::vector<std::uint64_t> actualOffsets;
        for (const std::string& object : objects) {
            actualOffsets.push_back(result.size());
            result += object;
        }
        const std::uint64_t table = result.size();
        for (const std::uint64_t offset : offsets.value_or(actualOffsets)) {
            result += bigEndian(offset, offsetWidth);
        }
        result += padding;
        result += static_cast<char>(offsetWidth);
        result += static_cast<char>(referenceWidth);
        result += bigEndian(objectCount.value_or(objects.size()), 8);
        result += bigEndian(root, 8);
        result += bigEndian(offsetTable.value_or(table), 8);
        return result;
    }
};

std::string array(const std::string& references) {
    return static_cast<char>(0xA0 + references.size()) + references;
}

std::string xml(const std::string& content) {
    return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + content + "</plist>";
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

} // namespace

TEST(PropertyListTest, EveryKindOfBinaryObjectIsRead) {
    const BinaryList list{
        {array("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A"),
         "\x09",
         "\x10\x7F",
         "\x14" + std::string(16, '\0'),
         "\x22" + std::string(4, '\0'),
         "\x33" + std::string(8, '\0'),
         "\x42\x01\x02",
         "\x52hi",
         "\x61\x4E\x2D",
         "\x82\x01\x02\x03",
         "\xD1\x07\x01"}};
    const PropertyList parsed = parse(list.bytes());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(plist_array_get_size(parsed.get()), 10U);
}

TEST(PropertyListTest, OddWidthsAreRead) {
    for (std::size_t width = 1; width <= 8; ++width) {
        const BinaryList list{
            .objects = {"\xA1" + bigEndian(1, width), "\x52hi"},
            .offsetWidth = width,
            .referenceWidth = width};
        EXPECT_TRUE(isRead(list.bytes())) << width;
    }
}

TEST(PropertyListTest, WidthsOfZeroOrMoreThanEightAreRefused) {
    EXPECT_FALSE(isRead(BinaryList{.objects = {"\x09"}, .offsetWidth = 0}.bytes()));
    EXPECT_FALSE(isRead(BinaryList{.objects = {"\x09"}, .offsetWidth = 9}.bytes()));
    EXPECT_FALSE(isRead(BinaryList{.objects = {"\x09"}, .referenceWidth = 0}.bytes()));
    EXPECT_FALSE(isRead(BinaryList{.objects = {"\x09"}, .referenceWidth = 9}.bytes()));
}

TEST(PropertyListTest, WrongTrailersAreRefused) {
    constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();
    const std::vector<std::string> objects = {"\x52hi"};
    ASSERT_TRUE(isRead(BinaryList{.objects = objects}.bytes()));
    expectRefused(BinaryList{.objects = objects, .root = 1}.bytes());
    expectRefused(BinaryList{.objects = objects, .root = huge}.bytes());
    for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{2}, huge, huge / 2 + 1}) {
        expectRefused(BinaryList{.objects = objects, .objectCount = count}.bytes());
    }
    // The trailer would serve as the offset of a second object.
    expectRefused(
        BinaryList{.objects = objects, .objectCount = 2, .padding = "\x00\x08\x00\x08\x00\x08"s}
            .bytes());
    for (const std::uint64_t table :
         {std::uint64_t{0}, std::uint64_t{8}, std::uint64_t{12}, huge}) {
        expectRefused(BinaryList{.objects = objects, .offsetTable = table}.bytes());
    }
    for (const std::uint64_t offset :
         {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{11}, huge}) {
        expectRefused(
            BinaryList{.objects = objects, .offsetWidth = 8, .offsets = {{offset}}}.bytes());
    }
}

TEST(PropertyListTest, ObjectsThatReachIntoTheOffsetTableAreRefused) {
    for (const std::string& object :
         {"\x10"s,
          "\x11\x01"s,
          "\x33\x01"s,
          "\x43\x01\x02"s,
          "\x53hi"s,
          "\x62\x4E\x2D"s,
          "\x61\x4E"s,
          "\x81\x01"s,
          "\xA1"s,
          "\xD1\x01"s,
          "\x5F"s,
          "\x5F\x10"s,
          "\x5F\x11\x00"s,
          "\x5F\x10\x03hi"s,
          "\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s,
          "\x6F\x13\x80\x00\x00\x00\x00\x00\x00\x01"s,
          "\xAF\x13\x20\x00\x00\x00\x00\x00\x00\x00"s,
          "\xDF\x13\x80\x00\x00\x00\x00\x00\x00\x00"s}) {
        expectRefused(BinaryList{.objects = {object}}.bytes());
    }
}

TEST(PropertyListTest, UnknownObjectsAreRefused) {
    for (const std::string& object :
         {"\x01"s,
          "\x0F"s,
          "\x15" + std::string(32, '\0'),
          "\x20"s + std::string(8, '\0'),
          "\x32"s + std::string(8, '\0'),
          "\x70"s,
          "\x90"s,
          "\xB0"s,
          "\xE0"s,
          "\xF0"s,
          // The count must be an integer of at most eight bytes.
          "\x5F\x52hi"s,
          "\x5F\x14" + std::string(16, '\0')}) {
        EXPECT_FALSE(isRead(BinaryList{.objects = {object}}.bytes()))
            << testing::PrintToString(object);
    }
}

TEST(PropertyListTest, AReferenceToNoObjectIsRefused) {
    EXPECT_FALSE(isRead(BinaryList{.objects = {array("\x01")}}.bytes()));
    EXPECT_FALSE(isRead(BinaryList{.objects = {"\xD1\x01\x02", "\x51k"}}.bytes()));
    EXPECT_FALSE(isRead(BinaryList{
        .objects = {"\xA1" + bigEndian(std::numeric_limits<std::uint64_t>::max(), 8)},
        .referenceWidth = 8}
                            .bytes()));
}

TEST(PropertyListTest, AKeyThatIsNotTextIsRefused) {
    ASSERT_TRUE(isRead(BinaryList{.objects = {"\xD1\x01\x01", "\x51k"}}.bytes()));
    expectRefused(BinaryList{.objects = {"\xD1\x01\x01", "\x09"}}.bytes());
    expectRefused(BinaryList{.objects = {"\xD1\x01\x01", "\x51\0"s}}.bytes());
}

TEST(PropertyListTest, AKeyWithANulIsRefused) {
    ASSERT_TRUE(isRead(BinaryList{.objects = {"\xD1\x01\x01", "\x61\0k"s}}.bytes()));
    expectRefused(BinaryList{.objects = {"\xD1\x01\x01", "\x61\0\0"s}}.bytes());
    expectRefused(BinaryList{.objects = {"\xD1\x01\x01", "\x63\0k\0\0\0k"s}}.bytes());
}

TEST(PropertyListTest, CircularReferencesAreRefused) {
    expectRefused(BinaryList{.objects = {array("\0"s)}}.bytes());
    expectRefused(BinaryList{.objects = {array("\x01"), array("\0"s)}}.bytes());
    expectRefused(BinaryList{.objects = {"\xD1\x01\0"s, "\x51k"}}.bytes());
    expectRefused(BinaryList{.objects = {array("\0\0\0\0\0\0\0\0"s)}}.bytes());
}

TEST(PropertyListTest, NestingIsLimited) {
    for (const auto& [depth, expected] : {std::pair(8, true), std::pair(9, false)}) {
        std::vector<std::string> objects;
        for (int i = 1; i < depth; ++i) {
            objects.push_back(array(std::string(1, static_cast<char>(i))));
        }
        objects.emplace_back("\x09");
        EXPECT_EQ(isRead(BinaryList{objects}.bytes()), expected);

        const auto arrays = static_cast<std::size_t>(depth - 1);
        EXPECT_EQ(
            isRead(xml(repeated("<array>", arrays) + "<true/>" + repeated("</array>", arrays))),
            expected);
    }
}

TEST(PropertyListTest, SharedObjectsCountOncePerReference) {
    // Arrays that each contain the next one twice: 63 objects with repetitions, then 127.
    for (const auto& [count, expected] : {std::pair(5, true), std::pair(6, false)}) {
        std::vector<std::string> objects;
        for (int i = 1; i <= count; ++i) {
            objects.push_back(array(std::string(2, static_cast<char>(i))));
        }
        objects.emplace_back("\x09");
        EXPECT_EQ(isRead(BinaryList{objects}.bytes()), expected);
    }
}

TEST(PropertyListTest, SharedTextsCountOncePerReference) {
    const std::string text = "\x5F\x11\x02\x00"s + std::string(512, 'x');
    EXPECT_TRUE(isRead(BinaryList{.objects = {array(std::string(7, '\x01')), text}}.bytes()));
    EXPECT_FALSE(isRead(BinaryList{.objects = {array(std::string(8, '\x01')), text}}.bytes()));
}

TEST(PropertyListTest, OverlappingObjectsLargerThanTheListAreRefused) {
    const std::string text = "\x5F\x11\x02\x00"s + std::string(512, 'x');
    const std::vector<std::uint64_t> offsets(8, 8);
    EXPECT_FALSE(isRead(
        BinaryList{.objects = {text}, .objectCount = offsets.size(), .offsets = offsets}.bytes()));
}

TEST(PropertyListTest, TextWithANulIsReadAsData) {
    const PropertyList parsed = parse(BinaryList{
        .objects = {"\x53"
                    "a\0b"s}}.bytes());
    ASSERT_EQ(plist_get_node_type(parsed.get()), PLIST_DATA);
    std::uint64_t length = 0;
    const char* const bytes = plist_get_data_ptr(parsed.get(), &length);
    EXPECT_EQ(std::string(bytes, length), "a\0b"s);
}

TEST(PropertyListTest, TheSizeIsLimited) {
    const std::string text = "<string>" + std::string(4000, 'x') + "</string>";
    EXPECT_TRUE(isRead("<plist>" + text + "</plist>"));
    EXPECT_FALSE(isRead(std::string(100, ' ') + "<plist>" + text + "</plist>"));
}

TEST(PropertyListTest, EveryXMLElementIsRead) {
    const PropertyList parsed = parse(
        "\xEF\xBB\xBF \n" +
        xml("\n<array>\n\t<true/> <false/>\r\n<integer>-1</integer><real>1.5</real>"
            "<date>2024-03-09T17:05:42Z</date><data>AQID</data><string>&lt;&#x4E2D;&#65;</string>"
            "<string/><string></string><array/><dict/>"
            "<dict><key>k</key><true></true></dict></array>\n"));
    ASSERT_TRUE(parsed);
    ASSERT_EQ(plist_array_get_size(parsed.get()), 12U);
    std::uint64_t length = 0;
    const char* const data = plist_get_data_ptr(plist_array_get_item(parsed.get(), 5), &length);
    EXPECT_EQ(std::string(data, length), "\x01\x02\x03");
    const char* const text = plist_get_string_ptr(plist_array_get_item(parsed.get(), 6), &length);
    EXPECT_EQ(
        std::string(text, length),
        "<\u4E2D"
        "A");
}

TEST(PropertyListTest, UnusualXMLIsRefused) {
    ASSERT_TRUE(isRead(xml("<array><string>x</string></array>")));
    for (const std::string& content :
         {""s,
          "text"s,
          "<array>text</array>"s,
          "<array><string>x</array></string>"s,
          "<array><string>x</string></dict>"s,
          "<array><string>x</string>"s,
          "<string>x</key>"s,
          "<string>x</strings>"s,
          "<string>x</string"s,
          "<string><true/></string>"s,
          "<string a=\"</string>\">x</string>"s,
          "<array a=\">\"></array>"s,
          "<unknown/>"s,
          "<plist></plist>"s,
          "<!-- <array> --><true/>"s,
          "<string><![CDATA[x]]></string>"s,
          "<?php ?><true/>"s,
          "<string>a\0b</string>"s,
          "<string>&#0;</string>"s,
          "<string>&bomb;</string>"s,
          "<string>&amp</string>"s,
          "<data>\xFF\xFF\xFF\xFF</data>"s,
          "<data>AQ-D</data>"s,
          "</array>"s,
          "<"s,
          "<>"s,
          "</>"s}) {
        EXPECT_FALSE(isRead(xml(content))) << content;
    }
}

TEST(PropertyListTest, AnElementEndsWithItsOwnName) {
    EXPECT_TRUE(PropertyListScreens::screenedXML(xml("<array></array>"), limits));
    for (const char* const content : {"<array></dict>", "<dict></array>", "<array></plist>"}) {
        EXPECT_FALSE(PropertyListScreens::screenedXML(xml(content), limits)) << content;
    }
}

TEST(PropertyListTest, DeclaredEntitiesAreUnknown) {
    const std::string prolog = "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\">"
                               "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]>";
    EXPECT_FALSE(isRead(prolog + "<plist><string>&b;</string></plist>"));
    EXPECT_TRUE(isRead(prolog + "<plist><string>b</string></plist>"));
}

TEST(PropertyListTest, ALongTextOfManyEntitiesIsRefused) {
    // Parsing one of these would take quadratic time.
    const PropertyListLimits wide = {.size = 4U << 20U, .objectCount = 100, .depth = 8};
    for (const auto& [count, expected] : {std::pair(13'000, true), std::pair(300'000, false)}) {
        const std::string text =
            xml("<string>" + repeated("&amp;", static_cast<std::size_t>(count)) + "</string>");
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        EXPECT_EQ(parsePropertyList(bytes, wide) != nullptr, expected) << count;
    }
}

TEST(PropertyListTest, XMLObjectsAreCounted) {
    EXPECT_TRUE(isRead(xml("<array>" + repeated("<true/>", 99) + "</array>")));
    EXPECT_FALSE(isRead(xml("<array>" + repeated("<true/>", 100) + "</array>")));
    EXPECT_FALSE(isRead(xml("<array>" + repeated("<array></array>", 100) + "</array>")));
}

TEST(PropertyListTest, XMLDictionariesAreLimited) {
    const PropertyListLimits wide = {.size = 65'536, .objectCount = 10'000, .depth = 8};
    for (const auto& [count, expected] : {std::pair(256, true), std::pair(257, false)}) {
        std::string content;
        for (int i = 0; i < count; ++i) {
            content += "<key>" + std::to_string(i) + "</key><true/>";
        }
        const std::string text = xml("<dict>" + content + "</dict>");
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        EXPECT_EQ(parsePropertyList(bytes, wide) != nullptr, expected) << count;
    }
}

} // namespace tavrin
