// SPDX-License-Identifier: Apache-2.0
#include "core/messages/AttributedBodyDecoder.h"

#include "tests/support/messages/KeyedArchiveBuilder.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

namespace {

using namespace std::string_literals;
using AttributedBodyDecoder::VariableLength;
using orvel::test::KeyedArchiveBuilder;

/// A heap copy of exactly the text's size, so that the sanitizer detects reading past the end.
class Blob final {
public:
    explicit Blob(std::string_view text) : bytes_(text.begin(), text.end()) {
        bytes_.shrink_to_fit();
    }

    [[nodiscard]] AttributedBodyDecoder::Bytes bytes() const { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
};

std::optional<std::string> decoded(std::string_view blob) {
    return AttributedBodyDecoder::decode(Blob(blob).bytes());
}

std::optional<std::string> decodedTypedStream(std::string_view blob) {
    return AttributedBodyDecoder::decodeTypedStream(Blob(blob).bytes());
}

std::optional<std::size_t> indexAfter(std::string_view pattern, std::string_view text) {
    return AttributedBodyDecoder::firstIndex(pattern, Blob(text).bytes());
}

std::optional<VariableLength> lengthAt(std::string_view text, std::size_t position) {
    return AttributedBodyDecoder::readVariableLength(Blob(text).bytes(), position);
}

std::string littleEndian(std::uint64_t value, std::size_t width) {
    std::string bytes;
    for (std::size_t i = 0; i < width; ++i) {
        bytes += static_cast<char>(value >> 8 * i & 0xFF);
    }
    return bytes;
}

std::string lengthField(std::size_t length) {
    if (length <= 0x7F) {
        return littleEndian(length, 1);
    }
    return length <= 0xFFFF ? "\x81" + littleEndian(length, 2) : "\x82" + littleEndian(length, 4);
}

enum class Classes { Plain, Mutable };

/// A typed stream of an attributed string with one attribute run.
std::string typedStream(std::string_view text, Classes classes) {
    std::string stream = "\x04\x0Bstreamtyped\x81\xE8\x03\x84\x01@\x84\x84\x84"s;
    if (classes == Classes::Mutable) {
        stream += "\x19NSMutableAttributedString\0\x84\x84"s;
    }
    stream += "\x12NSAttributedString\0\x84\x84\x08NSObject\0\x85\x92\x84\x84\x84"s;
    stream += classes == Classes::Mutable ? "\x0FNSMutableString\x01\x84\x84\x08NSString\x01\x95"s
                                          : "\x08NSString\x01\x94"s;
    stream += "\x84\x01+" + lengthField(text.size()) + std::string(text);
    stream += "\x86\x84\x02iI\x01" + lengthField(text.size());
    stream += "\x92\x84\x84\x84\x0CNSDictionary\0\x94\x84\x01i\x01\x92\x84\x96\x96\x04part\x86"
              "\x92\x84\x84\x84\x08NSNumber\0\x84\x84\x07NSValue\0\x94\x84\x01*\x84\x99\x99\0"
              "\x86\x86\x86"s;
    return stream;
}

} // namespace

TEST(AttributedBodyDecoderTest, ATypedStreamGivesItsText) {
    for (const Classes classes : {Classes::Plain, Classes::Mutable}) {
        for (const std::string& text :
             {"Hello"s,
              "Trailing spaces   "s,
              "Family \U0001F468\u200D\U0001F469\u200D\U0001F467 \u2764\uFE0F"s,
              "\uFFFC"s,
              "\uFFFCcaption\uFFFC"s,
              "a + b NSString+\x01x"s,
              "line\nline\r\n"s,
              "nul \0 inside"s,
              std::string(0x7F, 'x'),
              std::string(0x80, 'x'),
              std::string(0xFFFF, 'x'),
              std::string(0x10000, 'x')}) {
            EXPECT_EQ(decoded(typedStream(text, classes)), text);
        }
    }
}

TEST(AttributedBodyDecoderTest, ATypedStreamOfAnEmptyStringGivesNoText) {
    EXPECT_EQ(decoded(typedStream("", Classes::Plain)), std::nullopt);
    EXPECT_EQ(decoded(typedStream("", Classes::Mutable)), std::nullopt);
}

TEST(AttributedBodyDecoderTest, ATypedStreamTruncatedWithinItsTextGivesNoText) {
    for (const Classes classes : {Classes::Plain, Classes::Mutable}) {
        for (const std::string& text : {"short \U0001F600"s, std::string(300, 'x')}) {
            const std::string stream = typedStream(text, classes);
            const std::size_t end = stream.find("+" + lengthField(text.size()) + text) + 1 +
                                    lengthField(text.size()).size() + text.size();
            for (std::size_t size = 0; size < end; ++size) {
                EXPECT_EQ(decoded(stream.substr(0, size)), std::nullopt) << size;
            }
            for (std::size_t size = end; size <= stream.size(); ++size) {
                EXPECT_EQ(decoded(stream.substr(0, size)), text) << size;
            }
        }
    }
}

TEST(AttributedBodyDecoderTest, ATinyBlobGivesNoText) {
    for (const std::string& blob : {""s, "+"s, "NS"s, "\0\0"s}) {
        EXPECT_EQ(decoded(blob), std::nullopt);
        EXPECT_EQ(decodedTypedStream(blob), std::nullopt);
    }
}

TEST(AttributedBodyDecoderTest, ABlobWithoutAStringClassGivesNoText) {
    EXPECT_EQ(decodedTypedStream("\x01+\x05Hello"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSMutableAttributedString\x01+\x05Hello"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSStrin"), std::nullopt);
}

TEST(AttributedBodyDecoderTest, NothingAfterTheClassNameGivesNoText) {
    EXPECT_EQ(decodedTypedStream("NSString"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSMutableString"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("+\x05HelloNSString"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSString no marker"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSString+"), std::nullopt);
}

TEST(AttributedBodyDecoderTest, BytesBeforeTheMarkerAreSkipped) {
    EXPECT_EQ(decodedTypedStream("NSString\x01+\x05Hello"), "Hello");
    EXPECT_EQ(decodedTypedStream("NSString+\x05Hello"), "Hello");
    EXPECT_EQ(decodedTypedStream("NSMutableString\x01\x94\x84\x01+\x05Hello"), "Hello");
}

TEST(AttributedBodyDecoderTest, ThePlainClassComesBeforeTheMutableOne) {
    EXPECT_EQ(
        decodedTypedStream("NSMutableString+\x01"
                           "aNSString+\x01"
                           "b"),
        "b");
    EXPECT_EQ(
        decodedTypedStream("NSString+\x01"
                           "bNSMutableString+\x01"
                           "a"),
        "b");
    // The first occurrence counts.
    EXPECT_EQ(
        decodedTypedStream("NSString+\x01"
                           "bNSString+\x01"
                           "c"),
        "b");
}

TEST(AttributedBodyDecoderTest, EveryLengthEncodingIsRead) {
    const std::string text(300, 'x');
    EXPECT_EQ(decodedTypedStream("NSString+\x81" + littleEndian(300, 2) + text), text);
    EXPECT_EQ(decodedTypedStream("NSString+\x82" + littleEndian(300, 4) + text), text);
    EXPECT_EQ(decodedTypedStream("NSString+\x83" + littleEndian(300, 8) + text), text);
    EXPECT_EQ(decodedTypedStream("NSString+\x83" + littleEndian(1, 8) + text), "x");
}

TEST(AttributedBodyDecoderTest, AZeroLengthEndsTheDecode) {
    for (const std::string& zero :
         {"\0"s,
          "\x81" + littleEndian(0, 2),
          "\x82" + littleEndian(0, 4),
          "\x83" + littleEndian(0, 8)}) {
        EXPECT_EQ(decodedTypedStream("NSString+" + zero + "+\x05Hello"), std::nullopt);
    }
}

TEST(AttributedBodyDecoderTest, ABadLengthFieldEndsTheDecode) {
    for (const int first : {0x80, 0x84, 0x92, 0xFF}) {
        const std::string field(1, static_cast<char>(first));
        EXPECT_EQ(decodedTypedStream("NSString+" + field + "+\x05Hello"), std::nullopt) << first;
    }
    EXPECT_EQ(decodedTypedStream("NSString+\x81\x05"), std::nullopt);
}

TEST(AttributedBodyDecoderTest, ALengthPastTheEndGivesNoText) {
    EXPECT_EQ(decodedTypedStream("NSString+\x06Hello"), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSString+\x7F+\x01x"), std::nullopt);
    for (const std::uint64_t length :
         {std::uint64_t{6},
          std::uint64_t{1} << 31,
          std::uint64_t{1} << 63,
          std::numeric_limits<std::uint64_t>::max(),
          // Added to the position, this overflows to a position inside the blob.
          std::numeric_limits<std::uint64_t>::max() - 16}) {
        EXPECT_EQ(
            decodedTypedStream("NSString+\x83" + littleEndian(length, 8) + "Hello"), std::nullopt)
            << length;
    }
    EXPECT_EQ(decodedTypedStream("NSString+\x82\xFF\xFF\xFF\xFFHello"), std::nullopt);
}

TEST(AttributedBodyDecoderTest, IllFormedTextIsSkippedAsAWhole) {
    EXPECT_EQ(decodedTypedStream("NSString+\x02\xC3(+\x05Hello"), "Hello");
    // A marker inside the skipped bytes does not count.
    EXPECT_EQ(decodedTypedStream("NSString+\x04\xFF+\x01x+\x05Hello"), "Hello");
    EXPECT_EQ(decodedTypedStream("NSString+\x02\xC3("), std::nullopt);
    EXPECT_EQ(decodedTypedStream("NSString+\x03\xED\xA0\x80+\x01x"), "x");
}

TEST(AttributedBodyDecoderTest, FindsTheIndexAfterTheFirstOccurrence) {
    EXPECT_EQ(indexAfter("b", "abab"), 2U);
    EXPECT_EQ(indexAfter("ab", "aab"), 3U);
    EXPECT_EQ(indexAfter("abab", "abab"), 4U);
    EXPECT_EQ(indexAfter("a\0b"s, "xa\0b"s), 4U);
}

TEST(AttributedBodyDecoderTest, AnEmptyOrTooLongPatternIsNotFound) {
    EXPECT_EQ(indexAfter("", "abab"), std::nullopt);
    EXPECT_EQ(indexAfter("", ""), std::nullopt);
    EXPECT_EQ(indexAfter("a", ""), std::nullopt);
    EXPECT_EQ(indexAfter("ababa", "abab"), std::nullopt);
    EXPECT_EQ(indexAfter("c", "abab"), std::nullopt);
}

TEST(AttributedBodyDecoderTest, AVariableLengthIsReadWithThePositionAfterIt) {
    EXPECT_EQ(lengthAt("\0"s, 0), (VariableLength{0, 1}));
    EXPECT_EQ(lengthAt("x\x7F", 1), (VariableLength{0x7F, 2}));
    EXPECT_EQ(lengthAt("\x81\x2C\x01", 0), (VariableLength{300, 3}));
    EXPECT_EQ(lengthAt("\x81\xFF\xFF", 0), (VariableLength{0xFFFF, 3}));
    EXPECT_EQ(lengthAt("\x82\x01\x02\x03\x84", 0), (VariableLength{0x84030201, 5}));
    EXPECT_EQ(
        lengthAt("\x83\x01\x02\x03\x04\x05\x06\x07\x88", 0),
        (VariableLength{0x8807060504030201, 9}));
}

TEST(AttributedBodyDecoderTest, VariableLengthsPastTheEndOrOfUnknownKindsAreRefused) {
    EXPECT_EQ(lengthAt("", 0), std::nullopt);
    EXPECT_EQ(lengthAt("x", 1), std::nullopt);
    EXPECT_EQ(lengthAt("x", std::numeric_limits<std::size_t>::max()), std::nullopt);
    EXPECT_EQ(lengthAt("\x81\x01", 0), std::nullopt);
    EXPECT_EQ(lengthAt("\x82\x01\x02\x03", 0), std::nullopt);
    EXPECT_EQ(lengthAt("\x83\x01\x02\x03\x04\x05\x06\x07", 0), std::nullopt);
    EXPECT_EQ(lengthAt("\x80\x01", 0), std::nullopt);
    EXPECT_EQ(lengthAt("\x84\x01\x02\x03\x04\x05\x06\x07\x08", 0), std::nullopt);
    EXPECT_EQ(lengthAt("\xFF\x01", 0), std::nullopt);
}

TEST(AttributedBodyDecoderTest, AKeyedArchiveGivesItsText) {
    EXPECT_EQ(decoded(KeyedArchiveBuilder().string("Hello").binary()), "Hello");
    EXPECT_EQ(decoded(KeyedArchiveBuilder().string("Hello").xml()), "Hello");
}

TEST(AttributedBodyDecoderTest, TheScannerIsTriedOnAKeyedArchiveOfAnEmptyString) {
    const KeyedArchiveBuilder archive = KeyedArchiveBuilder().string("").with("+\x05Hello");
    EXPECT_EQ(decoded(archive.binary()), "Hello");
}

TEST(AttributedBodyDecoderTest, TheScannerIsTriedOnAnArchiveOfAnotherClass) {
    const KeyedArchiveBuilder archive =
        KeyedArchiveBuilder().string("NSString").classes({"NSURL"}).with("+\x05Hello");
    EXPECT_EQ(decoded(archive.binary()), "Hello");
}

} // namespace tavrin
