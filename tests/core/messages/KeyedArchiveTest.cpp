// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#include "tests/support/messages/KeyedArchiveBuilder.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace tavrin {

namespace {

using namespace std::string_literals;
using orvel::test::KeyedArchiveBuilder;

std::optional<std::string> read(std::string_view archive) {
    // Shrink the allocation to the archive's size, so that the sanitizer detects reading past the
    // end.
    std::vector<std::uint8_t> bytes(archive.begin(), archive.end());
    bytes.shrink_to_fit();
    return KeyedArchive::attributedString(bytes);
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    const std::size_t position = text.find(what);
    EXPECT_NE(position, std::string::npos) << what;
    return position == std::string::npos ? text : text.replace(position, what.size(), by);
}

/// A handwritten archive, for content that no archiver writes.
const std::string archive =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""
    " \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n"
    "<dict>"
    "<key>$archiver</key><string>NSKeyedArchiver</string>"
    "<key>$top</key><dict><key>root</key>"
    "<dict><key>CF$UID</key><integer>1</integer></dict></dict>"
    "<key>$objects</key><array>"
    "<string>$null</string>"
    "<dict><key>NSString</key><dict><key>CF$UID</key><integer>2</integer></dict>"
    "<key>$class</key><dict><key>CF$UID</key><integer>3</integer></dict></dict>"
    "<string>Hello</string>"
    "<dict><key>$classes</key><array><string>NSAttributedString</string></array></dict>"
    "</array>"
    "</dict>\n"
    "</plist>\n";

const std::string textReference =
    "<key>NSString</key><dict><key>CF$UID</key><integer>2</integer></dict>";

} // namespace

TEST(KeyedArchiveTest, TheTextOfEveryFormAndFormatIsRead) {
    for (const std::string& text :
         {"Hello"s,
          " trailing spaces  "s,
          "caf\u00E9 \uFFFC \u4E2D\u6587 \U0001F600"s,
          "<&> \"quoted\" 'too' &amp; ]]>"s,
          "$null"s,
          ""s,
          std::string(14, 'x'),
          std::string(15, 'x'),
          std::string(100'000, 'x'),
          std::string(300, 'x') + "\u4E2D"}) {
        for (KeyedArchiveBuilder builder :
             {KeyedArchiveBuilder().string(text),
              KeyedArchiveBuilder().stringObject(text),
              KeyedArchiveBuilder().bytesObject(text)}) {
            EXPECT_EQ(read(builder.binary()), text);
            EXPECT_EQ(read(builder.xml()), text);
        }
    }
}

TEST(KeyedArchiveTest, ADerivedClassIsAnAttributedStringToo) {
    const auto builder = KeyedArchiveBuilder().stringObject("Hello").classes(
        {"NSMutableAttributedString", "NSAttributedString", "NSObject"});
    EXPECT_EQ(read(builder.binary()), "Hello");
    EXPECT_EQ(read(builder.xml()), "Hello");
}

TEST(KeyedArchiveTest, AnotherRootClassGivesNoText) {
    const auto builder =
        KeyedArchiveBuilder().string("Hello").classes({"NSAttributedStringKey", "NSObject"});
    EXPECT_EQ(read(builder.binary()), std::nullopt);
    EXPECT_EQ(read(builder.xml()), std::nullopt);
}

TEST(KeyedArchiveTest, OtherDataGivesNoText) {
    EXPECT_EQ(read(archive), "Hello");
    EXPECT_EQ(read(""), std::nullopt);
    EXPECT_EQ(read("bplist00"), std::nullopt);
    EXPECT_EQ(read("<?xml version=\"1.0\"?>"), std::nullopt);
    EXPECT_EQ(read("NSKeyedArchiver"), std::nullopt);
    EXPECT_EQ(read(replaced(archive, "NSKeyedArchiver", "NSArchiver")), std::nullopt);
    EXPECT_EQ(read(replaced(archive, "$archiver", "$writer")), std::nullopt);
    EXPECT_EQ(read("<plist><string>NSKeyedArchiver</string></plist>"), std::nullopt);
    EXPECT_EQ(read("<plist><array><string>x</string></array></plist>"), std::nullopt);
}

TEST(KeyedArchiveTest, AMissingOrMistypedPartGivesNoText) {
    for (const char* const key : {"$top", "root", "$objects", "NSString", "$class", "$classes"}) {
        EXPECT_EQ(
            read(replaced(archive, "<key>"s + key + "</key>", "<key>other</key>")), std::nullopt)
            << key;
    }
    const std::string one = "<dict><key>CF$UID</key><integer>1</integer></dict>";
    const std::string three = "<dict><key>CF$UID</key><integer>3</integer></dict>";
    EXPECT_EQ(read(replaced(archive, one, "<integer>1</integer>")), std::nullopt);
    EXPECT_EQ(read(replaced(archive, three, "<string>3</string>")), std::nullopt);
    EXPECT_EQ(read(replaced(archive, textReference, "<key>NSString</key><true/>")), std::nullopt);
    EXPECT_EQ(
        read(replaced(archive, "<string>Hello</string>", "<integer>5</integer>")), std::nullopt);
    EXPECT_EQ(
        read(replaced(archive, "<string>Hello</string>", "<array><string>x</string></array>")),
        std::nullopt);
}

TEST(KeyedArchiveTest, ATextInPlaceOfTheReferenceIsRead) {
    EXPECT_EQ(
        read(replaced(archive, textReference, "<key>NSString</key><string>in place</string>")),
        "in place");
    EXPECT_EQ(
        read(replaced(
            archive,
            "<string>Hello</string>",
            "<dict><key>NS.string</key><dict><key>CF$UID</key><integer>4</integer></dict></dict>"
            "<dict><key>$classes</key><array><string>NSAttributedString</string></array></dict>"
            "<string>further</string>")),
        "further");
}

TEST(KeyedArchiveTest, ADictionaryWithAnotherKeyIsNoReference) {
    const std::string reference = "<integer>2</integer></dict>";
    EXPECT_EQ(
        read(replaced(archive, reference, "<integer>2</integer><key>x</key><true/></dict>")),
        std::nullopt);
}

TEST(KeyedArchiveTest, ADanglingReferenceGivesNoText) {
    for (const char* const index : {"4", "100000", "4294967295", "4294967297", "-1", "x"}) {
        for (const char* const from : {"1", "2", "3"}) {
            EXPECT_EQ(
                read(replaced(
                    archive,
                    "<integer>"s + from + "</integer>",
                    "<integer>"s + index + "</integer>")),
                std::nullopt)
                << from << " to " << index;
        }
    }
}

TEST(KeyedArchiveTest, AReferenceToNilGivesNoText) {
    EXPECT_EQ(
        read(replaced(archive, "<integer>2</integer>", "<integer>0</integer>")), std::nullopt);
}

TEST(KeyedArchiveTest, CircularReferencesGiveNoText) {
    // The text refers to the attributed string, or to itself.
    EXPECT_EQ(
        read(replaced(archive, "<integer>2</integer>", "<integer>1</integer>")), std::nullopt);
    EXPECT_EQ(
        read(replaced(
            archive,
            "<string>Hello</string>",
            "<dict><key>NS.string</key><dict><key>CF$UID</key><integer>2</integer></dict></dict>")),
        std::nullopt);
    EXPECT_EQ(
        read(replaced(
            archive,
            "<string>Hello</string>",
            "<dict><key>CF$UID</key><integer>2</integer></dict>")),
        std::nullopt);
}

TEST(KeyedArchiveTest, IllFormedTextIsRepaired) {
    EXPECT_EQ(read(replaced(archive, "Hello", "H\xC3llo")), "H\uFFFDllo");
    EXPECT_EQ(read(KeyedArchiveBuilder().bytesObject("H\xFF").binary()), "H\uFFFD");
    EXPECT_EQ(read(KeyedArchiveBuilder().bytesObject("H\xFF").xml()), "H\uFFFD");
    EXPECT_EQ(
        read(replaced(KeyedArchiveBuilder().string("Hello").binary(), "Hello", "H\xFFllo")),
        "H\uFFFDllo");
    // Half a surrogate pair.
    EXPECT_EQ(read(replaced(archive, "Hello", "H&#xD83D;")), "H\uFFFD\uFFFD\uFFFD");
}

TEST(KeyedArchiveTest, AnUnpairedSurrogateIsReplacedAndAPairKept) {
    // The archive stores UTF-16: a surrogate pair, and the same pair separated by a letter.
    const std::string binary = KeyedArchiveBuilder().string("\u4E01\u4E02a\u4E03!").binary();
    const std::string before = "\x4E\x01\x4E\x02\0a\x4E\x03\0!"s;
    EXPECT_EQ(read(replaced(binary, before, "\xD8\x3D\xDE\x00\0a\0b\0!"s)), "\U0001F600ab!");
    EXPECT_EQ(read(replaced(binary, before, "\xD8\x3D\0x\xDE\x00\0b\0!"s)), "\uFFFDx\uFFFDb!");
    EXPECT_EQ(
        read(replaced(binary, before, "\xD8\x3D\xD8\x3D\xDE\x00\0b\0!"s)), "\uFFFD\U0001F600b!");
    EXPECT_EQ(
        read(replaced(binary, before, "\xDE\x00\xDE\x00\0a\0b\xD8\x3D"s)), "\uFFFD\uFFFDab\uFFFD");
}

TEST(KeyedArchiveTest, AnEmbeddedNulIsKept) {
    EXPECT_EQ(
        read(replaced(KeyedArchiveBuilder().string("He.lo").binary(), "He.lo", "He\0lo"s)),
        "He\0lo"s);
    EXPECT_EQ(
        read(replaced(KeyedArchiveBuilder().stringObject("He.lo").binary(), "He.lo", "He\0lo"s)),
        "He\0lo"s);
    EXPECT_EQ(
        read(replaced(
            KeyedArchiveBuilder().string("He.lo to a text of some length").binary(),
            "He.lo",
            "\0\0\0lo"s)),
        "\0\0\0lo to a text of some length"s);
    EXPECT_EQ(
        read(replaced(
            KeyedArchiveBuilder().string("He.\u4E2D").binary(), "\0.\x4E\x2D"s, "\0\0\x4E\x2D"s)),
        "He\0\u4E2D"s);
    EXPECT_EQ(read(KeyedArchiveBuilder().bytesObject("He\0lo"s).binary()), "He\0lo"s);
    EXPECT_EQ(read(KeyedArchiveBuilder().bytesObject("He\0lo"s).xml()), "He\0lo"s);
    EXPECT_EQ(read(replaced(archive, "Hello", "He\0lo"s)), std::nullopt);
}

TEST(KeyedArchiveTest, ATruncatedArchiveGivesNoText) {
    for (const KeyedArchiveBuilder& builder :
         {KeyedArchiveBuilder().string("Hello \U0001F600"),
          KeyedArchiveBuilder().bytesObject("Hello")}) {
        const std::string binary = builder.binary();
        for (std::size_t size = 0; size < binary.size(); ++size) {
            EXPECT_EQ(read(binary.substr(0, size)), std::nullopt) << size;
        }
        const std::string xml = builder.xml();
        // Only the final line feed is optional.
        ASSERT_TRUE(xml.ends_with("</plist>\n"));
        for (std::size_t size = 0; size < xml.size() - 1; ++size) {
            EXPECT_EQ(read(xml.substr(0, size)), std::nullopt) << size;
        }
    }
}

TEST(KeyedArchiveTest, AnArchiveWithAnyByteChangedIsReadOrRefused) {
    for (const std::string& whole :
         {KeyedArchiveBuilder().string("Hello \U0001F600").binary(),
          KeyedArchiveBuilder().bytesObject("Hello").xml()}) {
        for (std::size_t position = 0; position < whole.size(); ++position) {
            for (const int value : {0x00, 0x0F, 0x3C, 0xAF, 0xFF}) {
                std::string changed = whole;
                changed[position] = static_cast<char>(value);
                const auto text = read(changed);
                EXPECT_TRUE(!text || text->size() <= whole.size());
            }
        }
    }
}

TEST(KeyedArchiveTest, SearchesTheNearestAncestorsOnly) {
    const auto isRead = [](std::size_t position) {
        std::vector<std::string> classes(position, "NSObject");
        classes.emplace_back("NSAttributedString");
        const std::string archive = KeyedArchiveBuilder().string("Hello").classes(classes).binary();
        return KeyedArchive::attributedString(
                   {reinterpret_cast<const std::uint8_t*>(archive.data()), archive.size()})
            .has_value();
    };
    EXPECT_TRUE(isRead(15));
    EXPECT_FALSE(isRead(16));
    EXPECT_FALSE(isRead(90'000));
}

} // namespace tavrin
