// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/AttributedBodyWriter.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace orvel {
namespace {

using namespace std::string_literals;

std::string asText(const Blob& bytes) {
    return {bytes.begin(), bytes.end()};
}

TEST(AttributedBodyWriterTest, WritesTheArchiveOfAPlainMessage) {
    const std::string expected = "\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@\x84\x84\x84\x12"
                                 "NSAttributedString\0\x84\x84\x08"
                                 "NSObject\0\x85\x92\x84\x84\x84\x08"
                                 "NSString\x01\x94\x84\x01+\x05"
                                 "Hello\x86\x84\x02iI\x01\x05\x92\x84\x84\x84\x0c"
                                 "NSDictionary\0\x94\x84\x01i\x01\x92\x84\x96\x96\x1d"
                                 "__kIMMessagePartAttributeName\x86\x92\x84\x84\x84\x08"
                                 "NSNumber\0\x84\x84\x07"
                                 "NSValue\0\x94\x84\x01*\x84\x99\x99\0\x86\x86\x86"s;
    EXPECT_EQ(asText(typedStream({{{"Hello"}}, false})), expected);
}

TEST(AttributedBodyWriterTest, WritesTheMutableClasses) {
    const std::string archive = asText(typedStream({{{"Hello"}}, true}));
    EXPECT_NE(archive.find("NSMutableAttributedString"), std::string::npos);
    EXPECT_NE(
        archive.find("NSMutableString\x01\x84\x84\x08NSString\x01\x95\x84\x01+\x05Hello"),
        std::string::npos);
}

TEST(AttributedBodyWriterTest, CountsRunsInUTF16Units) {
    // Each letter is one unit, the emoji two.
    const std::string archive = asText(typedStream({{{"né🎉"}}, false}));
    EXPECT_NE(archive.find("né🎉\x86\x84\x02iI\x01\x04"), std::string::npos);
}

TEST(AttributedBodyWriterTest, NamesTheAttachmentOfItsRun) {
    const std::string archive =
        asText(typedStream({{{"\uFFFC", "at_0_SOME-GUID"}, {"caption"}}, false}));
    EXPECT_NE(
        archive.find("\uFFFC"
                     "caption\x86\x84\x02iI\x01\x01"),
        std::string::npos);
    EXPECT_NE(archive.find("__kIMFileTransferGUIDAttributeName"), std::string::npos);
    EXPECT_NE(archive.find("at_0_SOME-GUID"), std::string::npos);
}

TEST(AttributedBodyWriterTest, WritesAKeyedArchiveAsABinaryPropertyList) {
    for (const bool isMutable : {false, true}) {
        const std::string archive = asText(keyedArchive({{{"Hello"}}, isMutable}));
        EXPECT_TRUE(archive.starts_with("bplist00"));
        EXPECT_NE(archive.find("NSKeyedArchiver"), std::string::npos);
        EXPECT_NE(archive.find("Hello"), std::string::npos);
        EXPECT_EQ(archive.find("NSMutableString") != std::string::npos, isMutable);
    }
}

} // namespace
} // namespace orvel
