// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"
#include "platform/linux/PlistBundle.h"
#include "tests/support/FakeBundle.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <QByteArray>
#include <QtGlobal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace orvel::test {

namespace {

using Strings = std::map<std::string, std::string>;

std::string propertyList(const std::string& content) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + content + "</plist>";
}

std::string dictionary(const Strings& entries) {
    std::string content = "<dict>";
    for (const auto& [key, value] : entries) {
        content += "<key>" + key + "</key><string>" + value + "</string>";
    }
    return propertyList(content + "</dict>");
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

struct PlistFixture {
    TemporaryDirectory folder;

    std::unique_ptr<Bundle> bundle(const Strings& information, const Strings& resources) {
        writeFile(folder / "Info.plist", dictionary(information));
        for (const auto& [name, content] : resources) {
            writeFile(folder / name, content);
        }
        return std::make_unique<PlistBundle>(folder.path());
    }
};

struct FakeFixture {
    std::unique_ptr<Bundle> bundle(const Strings& information, const Strings& resources) {
        auto bundle = std::make_unique<FakeBundle>();
        for (const auto& [key, value] : information) {
            bundle->setInfo(key, value);
        }
        for (const auto& [name, content] : resources) {
            bundle->setResource(name, content);
        }
        return bundle;
    }
};

template <typename Fixture>
class BundleTest : public testing::Test {
protected:
    std::unique_ptr<Bundle> bundle(const Strings& information, const Strings& resources = {}) {
        return fixture_.bundle(information, resources);
    }

private:
    Fixture fixture_;
};

using Fixtures = testing::Types<PlistFixture, FakeFixture>;
TYPED_TEST_SUITE(BundleTest, Fixtures);

} // namespace

TYPED_TEST(BundleTest, GivesTheStringOfAKey) {
    const auto bundle = this->bundle({{"API_HOST", " example "}, {"EMPTY", ""}});
    EXPECT_EQ(bundle->infoString("API_HOST"), " example ");
    EXPECT_EQ(bundle->infoString("EMPTY"), "");
}

TYPED_TEST(BundleTest, GivesNothingForAMissingKey) {
    const auto bundle = this->bundle({{"API_HOST", "example"}});
    EXPECT_EQ(bundle->infoString("api_host"), std::nullopt);
    EXPECT_EQ(bundle->infoString(""), std::nullopt);
}

TYPED_TEST(BundleTest, IdentifierIsEmptyWithoutItsKey) {
    EXPECT_EQ(this->bundle({{"CFBundleName", "x"}})->identifier(), "");
    EXPECT_EQ(this->bundle({{"CFBundleIdentifier", "app.test"}})->identifier(), "app.test");
}

TYPED_TEST(BundleTest, GivesTheContentOfAResource) {
    const std::string content("line one\n\0line two", 18);
    const auto bundle = this->bundle({}, {{"CHANGELOG.md", content}, {"EMPTY.md", ""}});
    EXPECT_EQ(bundle->resource("CHANGELOG", "md"), content);
    EXPECT_EQ(bundle->resource("EMPTY", "md"), "");
}

TYPED_TEST(BundleTest, GivesNothingForAMissingResource) {
    EXPECT_EQ(this->bundle({})->resource("CHANGELOG", "md"), std::nullopt);
}

namespace {

class PlistBundleTest : public testing::Test {
protected:
    void write(const std::string& name, const std::string& content) {
        writeFile(folder_ / name, content);
    }

    /// The error of reading the folder.
    [[nodiscard]] tavrin::PlatformError error() const {
        try {
            const PlistBundle bundle(folder_.path());
        } catch (const tavrin::PlatformError& failure) {
            return failure;
        }
        ADD_FAILURE() << "The bundle was read.";
        return {"", 0, ""};
    }

    TemporaryDirectory folder_;
};

} // namespace

TEST_F(PlistBundleTest, ReadsEscapedAndUnicodeText) {
    EXPECT_EQ(
        PlistBundle::parse(dictionary({{"a", "&lt;&amp;&gt; \xC3\xA9 &#233;"}})),
        (PlistBundle::Information{{"a", "<&> \xC3\xA9 \xC3\xA9"}}));
}

TEST_F(PlistBundleTest, SkipsWhatIsNoString) {
    EXPECT_EQ(
        PlistBundle::parse(propertyList(
            "<dict><key>i</key><integer>1</integer><key>b</key><true/><key>d</key><dict>"
            "<key>s</key><string>inner</string></dict><key>s</key><string>x</string></dict>")),
        (PlistBundle::Information{{"s", "x"}}));
}

TEST_F(PlistBundleTest, RefusesWhatIsNoDictionary) {
    for (const std::string& content :
         {std::string(),
          std::string("garbage"),
          propertyList(""),
          propertyList("<string>x</string>"),
          propertyList("<array/>"),
          propertyList("<dict><key>a</key><string>x</dict>"),
          dictionary({{"a", "x"}}).substr(0, 90),
          std::string("bplist00")}) {
        write("Info.plist", content);
        const tavrin::PlatformError failure = error();
        EXPECT_EQ(failure.code(), EBADMSG) << content;
        EXPECT_STREQ(
            failure.what(),
            "The information property list is not a property list with a dictionary.");
    }
}

TEST_F(PlistBundleTest, SaysWhichFileIsMissing) {
    const tavrin::PlatformError failure = error();
    EXPECT_EQ(failure.code(), ENOENT);
    EXPECT_THAT(failure.what(), testing::HasSubstr("Info.plist: No such file or directory"));
}

TEST_F(PlistBundleTest, RefusesAFileThatIsTooLong) {
    write("Info.plist", std::string(PlistBundle::maximumFileBytes + 1, ' '));
    EXPECT_EQ(error().code(), EFBIG);
}

TEST_F(PlistBundleTest, RefusesAFolderInPlaceOfTheFile) {
    std::filesystem::create_directory(folder_ / "Info.plist");
    EXPECT_EQ(error().code(), EISDIR);
}

TEST_F(PlistBundleTest, SaysThatTheFileMayNotBeRead) {
    write("Info.plist", dictionary({}));
    std::filesystem::permissions(folder_ / "Info.plist", std::filesystem::perms::none);
    const UnprivilegedUser user;
    EXPECT_EQ(error().code(), EACCES);
}

TEST_F(PlistBundleTest, TheEnvironmentNamesTheFolder) {
    qputenv("ORVEL_AGENT_BUNDLE", QByteArray::fromStdString(folder_.path().string()));
    const std::filesystem::path named = PlistBundle::defaultFolder();
    qunsetenv("ORVEL_AGENT_BUNDLE");
    EXPECT_EQ(named, folder_.path());
}

TEST_F(PlistBundleTest, TheBuildTreeHasABundleBesideItsPrograms) {
    const PlistBundle bundle(PlistBundle::defaultFolder());
    for (const char* key :
         {"CFBundleIdentifier",
          "CFBundleDisplayName",
          "CFBundleName",
          "CFBundleShortVersionString",
          "CFBundleVersion",
          "API_HOST",
          "WEB_HOST",
          "FIREBASE_API_KEY",
          "IDENTITY_TOOLKIT_URL",
          "SECURE_TOKEN_URL",
          "TLS_EXTRA_CA",
          "SUFeedURL",
          "SUPublicEDKey"}) {
        EXPECT_TRUE(bundle.infoString(key)) << key;
    }
    EXPECT_NE(bundle.identifier(), "");
    EXPECT_THAT(bundle.resource("CHANGELOG", "md").value_or(""), testing::HasSubstr("## ["));
}

} // namespace orvel::test
