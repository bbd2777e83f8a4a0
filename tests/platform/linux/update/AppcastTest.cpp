// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/Appcast.h"

#include "core/UpdateStatement.h"
#include "platform/linux/update/UpdateError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvel {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string feed(const std::string& channel) {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"
     xmlns:orvel="https://www.orvel.example/xml-namespaces/update"><channel><title>Orvel Agent</title>)" +
           channel + "</channel></rss>";
}

/// The feed's error; empty if valid.
std::string refusal(const std::string& text) {
    try {
        static_cast<void>(parseAppcast(text));
        return "";
    } catch (const UpdateError& error) {
        return error.what();
    }
}

constexpr const char* documentType = "The update feed declares a document type, which is refused.";
/// A line of /proc/self/status.
long memoryInMiB(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != name) {
    }
    long kibibytes = -1;
    EXPECT_TRUE(status >> kibibytes) << name;
    return kibibytes / 1024;
}

constexpr const char* tooLong = "The update feed is too long to be one.";
constexpr const char* notRSS = "The update feed is not an RSS 2.0 feed.";
constexpr const char* notUTF8 = "The update feed is not UTF-8 text.";

} // namespace

TEST(AppcastTest, ReadsEveryFieldOfAnItem) {
    const auto items = parseAppcast(feed(R"(
<item>
  <title>Version 2.0</title>
  <sparkle:version> 2.0 </sparkle:version>
  <sparkle:shortVersionString>Two</sparkle:shortVersionString>
  <sparkle:channel>beta</sparkle:channel>
  <sparkle:minimumSystemVersion>2.36</sparkle:minimumSystemVersion>
  <description sparkle:format="plain-text"><![CDATA[Faster & <better>.]]></description>
  <enclosure url="https://h/a?b=1&amp;c=2" length="1234" type="application/x"
             sparkle:edSignature="c2ln" sparkle:os="linux" sparkle:arch="x86_64"
             orvel:sha256="00ff" orvel:itemSignature="aXRlbQ=="/>
</item>)"));
    ASSERT_THAT(items, SizeIs(1));
    const AppcastItem& item = items.front();
    EXPECT_EQ(item.version, "2.0");
    EXPECT_EQ(item.shortVersion, "Two");
    EXPECT_EQ(item.channel, "beta");
    EXPECT_EQ(item.minimumSystemVersion, "2.36");
    EXPECT_EQ(item.description, "Faster & <better>.");
    ASSERT_TRUE(item.enclosure);
    EXPECT_EQ(item.enclosure->url, "https://h/a?b=1&c=2");
    EXPECT_EQ(item.enclosure->length, "1234");
    EXPECT_EQ(item.enclosure->type, "application/x");
    EXPECT_EQ(item.enclosure->signature, "c2ln");
    EXPECT_EQ(item.enclosure->system, "linux");
    EXPECT_EQ(item.enclosure->architecture, "x86_64");
    EXPECT_EQ(item.enclosure->sha256, "00ff");
    EXPECT_EQ(item.enclosure->itemSignature, "aXRlbQ==");
}

TEST(AppcastTest, TheVersionMayBeInTheEnclosure) {
    for (const char* item :
         {R"(<item><enclosure sparkle:version="2.0" sparkle:shortVersionString="Two"/></item>)",
          R"(<item><sparkle:version>2.0</sparkle:version>
             <sparkle:shortVersionString>Two</sparkle:shortVersionString>
             <enclosure sparkle:version="3" sparkle:shortVersionString="x"/></item>)",
          R"(<item><enclosure sparkle:version="3" sparkle:shortVersionString="x"/>
             <sparkle:version>2.0</sparkle:version>
             <sparkle:shortVersionString>Two</sparkle:shortVersionString></item>)"}) {
        const auto items = parseAppcast(feed(item));
        ASSERT_THAT(items, SizeIs(1));
        EXPECT_EQ(items.front().version, "2.0") << item;
        EXPECT_EQ(items.front().shortVersion, "Two") << item;
    }
}

TEST(AppcastTest, MissingFieldsAreEmpty) {
    const auto items = parseAppcast(feed("<item/><item><enclosure/></item>"));
    ASSERT_THAT(items, SizeIs(2));
    EXPECT_EQ(items[0].version, "");
    EXPECT_FALSE(items[0].enclosure);
    ASSERT_TRUE(items[1].enclosure);
    EXPECT_EQ(items[1].enclosure->url, "");
}

TEST(AppcastTest, IgnoresMisplacedElements) {
    const auto items = parseAppcast(feed(R"(
<enclosure url="https://outside"/>
<group><item><sparkle:version>1</sparkle:version></item></group>
<item>
  <version>1</version>
  <other:version xmlns:other="urn:other">1</other:version>
  <sparkle:deltas><enclosure url="https://delta"/><sparkle:version>1</sparkle:version></sparkle:deltas>
  <description>Before <b>bold</b>, after.</description>
  <enclosure url="https://first"/>
  <enclosure url="https://second" length="1"/>
  <item><sparkle:version>1</sparkle:version></item>
</item>)"));
    ASSERT_THAT(items, SizeIs(1));
    EXPECT_EQ(items.front().version, "");
    EXPECT_EQ(items.front().description, "Before , after.");
    ASSERT_TRUE(items.front().enclosure);
    EXPECT_EQ(items.front().enclosure->url, "https://first");
    EXPECT_EQ(items.front().enclosure->length, "");
}

TEST(AppcastTest, UsesTheNamespaceInsteadOfItsPrefix) {
    const auto items = parseAppcast(
        R"(<rss version="2.0"><channel><item>
           <s:version xmlns:s="http://www.andymatuschak.org/xml-namespaces/sparkle">2</s:version>
           </item></channel></rss>)");
    ASSERT_THAT(items, SizeIs(1));
    EXPECT_EQ(items.front().version, "2");
}

TEST(AppcastTest, AFeedMayHaveNoItems) {
    EXPECT_THAT(parseAppcast(feed("")), IsEmpty());
    EXPECT_THAT(parseAppcast("\xEF\xBB\xBF<rss version='2.0'/>"), IsEmpty());
}

TEST(AppcastTest, RefusesEveryDocumentType) {
    const std::string root = R"(<rss version="2.0"><channel/></rss>)";
    std::string laughs = R"(<!DOCTYPE rss [<!ENTITY e0 "ha">)";
    for (int level = 1; level < 30; ++level) {
        const std::string below = "&e" + std::to_string(level - 1) + ";";
        laughs += "<!ENTITY e" + std::to_string(level) + " \"" + below + below + below + "\">";
    }
    laughs += R"(]><rss version="2.0"><channel>&e29;</channel></rss>)";
    for (const std::string& text :
         {laughs,
          R"(<!DOCTYPE rss [<!ENTITY x SYSTEM "file:///etc/passwd">]>)" + root,
          R"(<!DOCTYPE rss [<!ENTITY % x SYSTEM "https://127.0.0.1/x"> %x;]>)" + root,
          R"(<!DOCTYPE rss SYSTEM "https://127.0.0.1/x">)" + root,
          R"(<!DOCTYPE rss PUBLIC "x" "file:///dev/zero">)" + root,
          "<!DOCTYPE rss>" + root,
          "<?xml version='1.0'?><!-- --><!DOCTYPE rss []>" + root}) {
        EXPECT_EQ(refusal(text), documentType) << text.substr(0, 80);
    }
}

TEST(AppcastTest, RejectsAnUnknownEntity) {
    EXPECT_EQ(refusal(feed("&x;")), "The update feed is not well-formed in line 3.");
    EXPECT_EQ(
        refusal(feed("<item><description>&nbsp;</description></item>")).find("line 3") !=
            std::string::npos,
        true);
}

TEST(AppcastTest, RefusesWhatIsNotWellFormed) {
    for (const std::string& text :
         {std::string(),
          std::string(" "),
          std::string("garbage"),
          std::string("{\"version\":2}"),
          std::string("<rss version=\"2.0\"><channel>"),
          std::string("<rss version=\"2.0\"><channel></rss>"),
          std::string("<rss version=\"2.0\"/><rss version=\"2.0\"/>"),
          std::string("<rss version=\"2.0\" version=\"2.0\"/>"),
          std::string("<rss version=\"2.0\"><unknown:x/></rss>"),
          std::string("<rss version=\"2.0\">\0</rss>", 26),
          std::string("<rss version=\"2.0\">\x01</rss>"),
          feed("<item><enclosure url=></item>"),
          feed("<item>").substr(0, 100)}) {
        EXPECT_THAT(
            refusal(text), testing::StartsWith("The update feed is not well-formed in line"))
            << text;
    }
}

TEST(AppcastTest, RefusesEndlessNesting) {
    const auto nested = [](int depth) {
        std::string text;
        for (int level = 0; level < depth; ++level) {
            text += "<x>";
        }
        for (int level = 0; level < depth; ++level) {
            text += "</x>";
        }
        return feed(text);
    };
    EXPECT_EQ(refusal(nested(60)), "");
    EXPECT_EQ(refusal(nested(70)), "The update feed is not well-formed in line 3.");
    EXPECT_EQ(refusal(nested(100'000)), "The update feed is not well-formed in line 3.");
}

TEST(AppcastTest, RefusesWhatIsNotRSS2) {
    for (const char* text :
         {"<feed xmlns='http://www.w3.org/2005/Atom'/>",
          "<html><body>502</body></html>",
          "<rss/>",
          "<rss version='0.91'/>",
          "<x:rss xmlns:x='urn:x' version='2.0'/>"}) {
        EXPECT_EQ(refusal(text), notRSS) << text;
    }
}

TEST(AppcastTest, RefusesWhatIsNotUTF8) {
    const std::string root = "<rss version='2.0'/>";
    for (const std::string& text :
         {feed("<item>\xFF</item>"),
          feed("\xC0\xAF"),
          feed("\xED\xA0\x80"),
          "<?xml version='1.0' encoding='ISO-8859-1'?>" + root,
          "<?xml version='1.0' encoding='UTF-16'?>" + root,
          "<?xml version='1.0' encoding='UTF-7'?>" + root,
          std::string("\xFF\xFE<\0r\0", 6)}) {
        EXPECT_EQ(refusal(text), notUTF8) << text;
    }
    EXPECT_EQ(refusal("<?xml version='1.0' encoding='UTF-8'?>" + root), "");
}

TEST(AppcastTest, RefusesWhatIsTooLong) {
    const std::string start = "<rss version='2.0'><!--";
    const std::string end = "--></rss>";
    const std::string longest =
        start + std::string(maximumAppcastBytes - start.size() - end.size(), 'x') + end;
    EXPECT_EQ(refusal(longest), "");
    EXPECT_EQ(refusal(longest + "\n"), "The update feed is too long to be one.");
}

TEST(AppcastTest, RefusesTooManyItems) {
    std::string items;
    for (std::size_t count = 0; count < maximumAppcastItems; ++count) {
        items += "<item/>";
    }
    EXPECT_THAT(parseAppcast(feed(items)), SizeIs(maximumAppcastItems));
    EXPECT_EQ(refusal(feed(items + "<item/>")), tooLong);
    EXPECT_EQ(refusal(feed(items + "<item><sparkle:version>2</sparkle:version></item>")), tooLong);
}

TEST(AppcastTest, RefusesTooManyElements) {
    std::string elements;
    // Beside the root, the channel and its title.
    for (std::size_t count = 3; count < maximumAppcastElements; ++count) {
        elements += "<x/>";
    }
    EXPECT_EQ(refusal(feed(elements)), "");
    EXPECT_EQ(refusal(feed(elements + "<x/>")), tooLong);
}

TEST(AppcastTest, CutsFieldsThatAreTooLong) {
    constexpr std::size_t field = tavrin::maximumUpdateFieldBytes;
    constexpr std::size_t notes = tavrin::maximumUpdateNotesBytes;
    const auto lengths = [](std::size_t fieldLength, std::size_t notesLength) {
        const std::string text(fieldLength, 'x');
        const auto items = parseAppcast(feed(
            "<item><sparkle:version>" + text + "</sparkle:version><description>" +
            std::string(notesLength, 'x') + "</description><enclosure url='" + text +
            "' orvel:itemSignature='" + text + "'/></item>"));
        const AppcastItem& item = items.front();
        return std::vector{
            item.version.size(),
            item.enclosure->url.size(),
            item.enclosure->itemSignature.size(),
            item.description.size()};
    };
    EXPECT_THAT(lengths(field, notes), ElementsAre(field, field, field, notes));
    EXPECT_THAT(
        lengths(10 * field, 10 * notes), ElementsAre(field + 1, field + 1, field + 1, notes + 1));
}

TEST(AppcastTest, NoFeedNeedsMuchMemory) {
    const auto longest = [](const std::function<std::string(std::size_t)>& piece) {
        std::string pieces;
        for (std::size_t index = 0; pieces.size() < maximumAppcastBytes - 500; ++index) {
            pieces += piece(index);
        }
        return feed(pieces);
    };
    const std::vector<std::pair<const char*, std::string>> feeds = {
        {"items", longest([](std::size_t) { return "<item/>"; })},
        {"elements",
         longest([](std::size_t index) { return "<x" + std::to_string(index) + "/>"; })},
        {"namespaces", longest([](std::size_t index) {
             return "<x xmlns:y" + std::to_string(index) + "='z" + std::to_string(index) + "'/>";
         })}};
    for (const auto& [name, text] : feeds) {
        ASSERT_LT(text.size(), maximumAppcastBytes) << name;
        const long before = memoryInMiB("VmRSS:");
        // From here on, the peak is that of the parser.
        std::ofstream("/proc/self/clear_refs") << "5";
        EXPECT_EQ(refusal(text), tooLong) << name;
        EXPECT_LT(memoryInMiB("VmHWM:") - before, 32) << name;
    }
}

TEST(AppcastTest, AcceptsAHundredThousandAttributes) {
    std::string enclosure = "<item><enclosure";
    for (int index = 0; index < 100'000; ++index) {
        enclosure += " a" + std::to_string(index) + "=''";
    }
    EXPECT_THAT(parseAppcast(feed(enclosure + " length='7'/></item>")), SizeIs(1));
}

} // namespace orvel
