// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/PlistBundle.h"

#include "core/Errors.h"
#include "core/WriteAccess.h"
#include "tests/platform/WrittenPropertyList.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <QByteArray>
#include <QtGlobal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace orvel::test {

namespace {

class PlistBundleTest : public testing::Test {
protected:
    void write(const std::string& name, const std::string& content) {
        writeFile(folder_ / name, content);
    }

    /// The error when constructing a bundle of the folder.
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

class PlistBundleAsRootTest : public PlistBundleTest {
protected:
    void SetUp() override { skipUnlessRoot(); }
};

} // namespace

TEST_F(PlistBundleTest, ReadsEscapedAndUnicodeText) {
    EXPECT_EQ(
        PlistBundle::parse(dictionary({{"a", "&lt;&amp;&gt; \xC3\xA9 &#233;"}})),
        (PlistBundle::Information{{"a", "<&> \xC3\xA9 \xC3\xA9"}}));
}

TEST_F(PlistBundleTest, RepairsIllFormedText) {
    EXPECT_EQ(
        PlistBundle::parse(dictionary({{"a\xFF", "b\xC3"}})),
        (PlistBundle::Information{{"a\uFFFD", "b\uFFFD"}}));
}

TEST_F(PlistBundleTest, SkipsValuesThatAreNotStrings) {
    EXPECT_EQ(
        PlistBundle::parse(propertyList(
            "<dict><key>i</key><integer>1</integer><key>b</key><true/><key>d</key><dict>"
            "<key>s</key><string>inner</string></dict><key>s</key><string>x</string></dict>")),
        (PlistBundle::Information{{"s", "x"}}));
}

TEST_F(PlistBundleTest, RejectsWhatIsNotADictionary) {
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

TEST_F(PlistBundleTest, NamesTheMissingFile) {
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

TEST_F(PlistBundleTest, ReportsAnUnreadableFile) {
    write("Info.plist", dictionary({}));
    std::filesystem::permissions(folder_ / "Info.plist", std::filesystem::perms::none);
    const UnprivilegedUser user;
    EXPECT_EQ(error().code(), EACCES);
}

TEST_F(PlistBundleTest, RefusesAListThatOthersMayChange) {
    if (tavrin::canOthersChange(std::filesystem::read_symlink("/proc/self/exe"))) {
        GTEST_SKIP() << "Other users can replace this program.";
    }
    write("Info.plist", dictionary({}));
    chmod((folder_ / "Info.plist").c_str(), 0666);
    EXPECT_EQ(
        error().what(),
        (folder_ / "Info.plist").string() +
            " is not used, because another user may have written it. Move the program to a folder "
            "that only you and root may write to, like all folders above it.");
    chmod((folder_ / "Info.plist").c_str(), 0600);
    for (const mode_t mode : {0777U, 01777U}) {
        chmod(folder_.path().c_str(), mode);
        EXPECT_EQ(error().code(), EPERM) << std::oct << mode;
    }
}

// In a folder such as /tmp, another user can put "share" beside the folder of the program.
TEST_F(PlistBundleAsRootTest, RefusesAFolderThatAnotherUserPutBesideTheProgram) {
    if (tavrin::canOthersChange(std::filesystem::read_symlink("/proc/self/exe"))) {
        GTEST_SKIP() << "Other users can replace this program.";
    }
    chmod(folder_.path().c_str(), 01777);
    const std::filesystem::path installed = folder_ / "share/orvel-agent";
    std::filesystem::create_directories(installed);
    write("share/orvel-agent/Info.plist", dictionary({}));
    const auto bundle = [this] {
        return PlistBundle(PlistBundle::folderOf(folder_ / "bin/orvel-agent", ""));
    };
    EXPECT_NO_THROW(bundle());
    ASSERT_EQ(chown((folder_ / "share").c_str(), 65534, 65534), 0);
    EXPECT_THROW(bundle(), tavrin::PlatformError);
}

TEST_F(PlistBundleTest, TheEnvironmentNamesTheFolder) {
    qputenv("ORVEL_AGENT_BUNDLE", QByteArray::fromStdString(folder_.path().string()));
    const std::filesystem::path named = PlistBundle::defaultFolder();
    qunsetenv("ORVEL_AGENT_BUNDLE");
    EXPECT_EQ(named, folder_.path());
}

TEST_F(PlistBundleTest, AnInstalledAgentDoesNotUseTheNamedFolder) {
    const std::filesystem::path agent = folder_ / "usr/bin/orvel-agent";
    const std::filesystem::path installed = folder_ / "usr/share/orvel-agent";
    EXPECT_EQ(PlistBundle::folderOf(agent, "/named"), "/named");
    EXPECT_EQ(PlistBundle::folderOf(agent, ""), folder_ / "usr/resources");
    std::filesystem::create_directories(installed);
    EXPECT_EQ(PlistBundle::folderOf(agent, "/named"), installed);
    EXPECT_EQ(PlistBundle::folderOf(agent, ""), installed);
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
