// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/CurlURLSession.h"
#include "platform/linux/update/Appcast.h"
#include "platform/linux/update/AppcastUpdater.h"
#include "tests/platform/linux/update/AppcastUpdaterFixture.h"
#include "tests/support/LocalServer.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Choice = SoftwareUpdater::Choice;
using Connection = LocalServer::Connection;
using testing::ElementsAre;
using testing::SizeIs;

/// With a real server.
class AppcastUpdaterDownloadTest : public AppcastUpdaterFixture {
protected:
    AppcastUpdaterDownloadTest()
        : server_([this](Connection& connection) {
              const std::string line = connection.readRequest().line;
              (line.starts_with("GET /feed.xml ") ? serveFeed : serveUpdate)(connection);
          }) {
        std::ofstream(folder_ / "pem") << server_.authority();
        session_ = std::make_unique<CurlURLSession>(CurlURLSession::Trust{{}, folder_ / "pem"});
        update("new content");
        presenter_.onOffer = [this] {
            updater_->choose(Choice::Install);
        };
        presenter_.onReadyToInstall = presenter_.onOffer;
    }
    ~AppcastUpdaterDownloadTest() override {
        updater_.reset();
        session_.reset();
    }

    URLSession* session() override { return session_.get(); }
    [[nodiscard]] std::string feedURL() const override { return server_.url("/feed.xml"); }
    [[nodiscard]] std::string updateURL() const override { return server_.url("/update"); }

    /// Serves the signed update as version 2.0.
    void update(const std::string& update) {
        feed(AppcastBuilder().add(item("2.0", update)).text());
        serveUpdate = [update](Connection& connection) {
            connection.reply(200, update);
        };
    }
    void feedPackage(const std::string& package) {
        const auto type = "application/vnd.debian.binary-package";
        feed(AppcastBuilder().add(item("2.0", package).with("type", type)).text());
    }
    void feed(const std::string& text) {
        serveFeed = [text](Connection& connection) {
            connection.reply(200, text);
        };
    }

    /// Requests an update and returns all stages shown.
    std::vector<std::string> outcome() {
        presenter_.clear();
        updater().checkForUpdates();
        const bool hasEnded = runUntil([this] {
            const std::string last = presenter_.shown().back();
            return last.ends_with(".") || last.starts_with("Could not") || last == "no update" ||
                   last == "relaunch" || last.starts_with("reveal");
        });
        EXPECT_TRUE(hasEnded);
        return presenter_.shown();
    }

    LocalServer::Handler serveFeed;
    LocalServer::Handler serveUpdate;
    LocalServer server_;
    std::unique_ptr<CurlURLSession> session_;
};

LocalServer::Handler redirecting(int status, const std::string& location) {
    return [status, location](Connection& connection) {
        connection.reply(status, "moved", "Location: " + location + "\r\n");
    };
}

LocalServer::Handler answering(int status) {
    return [status](Connection& connection) {
        connection.reply(status, "no");
    };
}

/// A reply that announces that many bytes and is cut off after `bytes`.
LocalServer::Handler cutOff(std::size_t announced, const std::string& bytes) {
    return [announced, bytes](Connection& connection) {
        connection.write(
            "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n" + bytes);
        connection.cutOff();
    };
}

} // namespace

TEST_F(AppcastUpdaterDownloadTest, AnAppImageIsReplacedAndRelaunched) {
    chmod(place_.c_str(), 0750);
    EXPECT_THAT(
        outcome(),
        ElementsAre(
            "checking",
            "update 2.0 in focus",
            "download",
            "verification",
            "ready 2.0",
            "relaunch"));
    EXPECT_EQ(content(place_), "new content");
    struct stat status {};
    ASSERT_EQ(stat(place_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0750U);
}

TEST_F(AppcastUpdaterDownloadTest, AnInstalledUpdateCanBeStarted) {
    update("#!/bin/sh\nexit 42\n");
    EXPECT_EQ(outcome().back(), "relaunch");
    EXPECT_EQ(WEXITSTATUS(std::system(place_.c_str())), 42);
}

TEST_F(AppcastUpdaterDownloadTest, APackageIsStoredAndRevealed) {
    isPackage_ = true;
    feedPackage("new content");
    const auto package = folder_ / "Downloads" / "orvel-agent-2.0.deb";
    EXPECT_EQ(outcome().back(), "reveal " + package.string());
    EXPECT_EQ(content(package), "new content");
    EXPECT_EQ(content(place_), "old");
    // Offered again, because the user may not have installed the package.
    EXPECT_EQ(outcome().back(), "reveal " + package.string());
    EXPECT_EQ(content(package), "new content");
}

TEST_F(AppcastUpdaterDownloadTest, AnUpdateMayBeLongerThanAReply) {
    const std::string large(URLSession::maximumReplyBytes * 2, 'x');
    update(large);
    EXPECT_EQ(outcome().back(), "relaunch");
    EXPECT_EQ(std::filesystem::file_size(place_), large.size());
}

TEST_F(AppcastUpdaterDownloadTest, AFeedThatCannotBeTrustedIsRefused) {
    const std::string secure = server_.url("/elsewhere");
    const std::string entities =
        "<!DOCTYPE rss [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;\">]>"
        "<rss version=\"2.0\"><channel>&b;</channel></rss>";
    const std::string outside = "<!DOCTYPE rss [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
                                "<rss version=\"2.0\"><channel>&x;</channel></rss>";
    const auto replying = [](const std::string& text) -> LocalServer::Handler {
        return [text](Connection& connection) {
            connection.reply(200, text);
        };
    };
    const auto offering = [&](const AppcastBuilder::Item& item) {
        return replying(AppcastBuilder().add(item).text());
    };
    const std::string feed = AppcastBuilder().add(item("2.0")).text();
    const UpdateSigner stranger;
    const std::string noItemSignature =
        "The entry of update 2.0 in the feed has no valid signature. It is not offered.";
    struct Case {
        const char* name;
        LocalServer::Handler serve;
        std::string sentence;
    };
    const std::vector<Case> cases = {
        {"missing",
         answering(404),
         "The update feed could not be loaded: the server answered with status 404."},
        {"busy",
         answering(503),
         "The update feed could not be loaded: the server answered with status 503."},
        {"partial",
         answering(206),
         "The update feed could not be loaded: the server answered with status 206."},
        {"lost",
         [](Connection& connection) { connection.reset(); },
         "The update feed could not be loaded. The network connection was lost."},
        {"cut off",
         cutOff(feed.size(), feed.substr(0, feed.size() / 2)),
         "The update feed could not be loaded. The network connection was lost."},
        {"redirect to http",
         redirecting(302, "http://127.0.0.1/feed.xml"),
         "The update feed has moved to an address without encryption, which is refused."},
        {"permanent redirect to http",
         redirecting(308, "http://127.0.0.1/feed.xml"),
         "The update feed has moved to an address without encryption, which is refused."},
        {"redirect",
         redirecting(301, secure),
         "The update feed has moved to another address, which is not followed."},
        {"huge",
         replying(std::string(maximumAppcastBytes + 1, ' ')),
         "The update feed is too long to be one."},
        {"endless",
         replying(std::string(URLSession::maximumReplyBytes + 1, ' ')),
         "The update feed could not be loaded. The reply of the server is too long."},
        {"empty", replying(""), "The update feed is not well-formed in line 1."},
        {"malformed",
         replying(feed.substr(0, feed.size() / 2)),
         "The update feed is not well-formed in line 3."},
        {"not RSS", replying("<html/>"), "The update feed is not an RSS 2.0 feed."},
        {"not UTF-8", replying(feed + "\xFF"), "The update feed is not UTF-8 text."},
        {"growing entities",
         replying(entities),
         "The update feed declares a document type, which is refused."},
        {"external entity",
         replying(outside),
         "The update feed declares a document type, which is refused."},
        {"parameter entity",
         replying("<!DOCTYPE rss [<!ENTITY % x SYSTEM \"https://127.0.0.1/x\"> %x;]>" + feed),
         "The update feed declares a document type, which is refused."},
        {"outside document type",
         replying("<!DOCTYPE rss SYSTEM \"https://127.0.0.1/x\">" + feed),
         "The update feed declares a document type, which is refused."},
        {"unknown entity",
         replying("<rss version=\"2.0\"><channel>&x;</channel></rss>"),
         "The update feed is not well-formed in line 1."},
        {"hidden by its encoding",
         replying("<?xml version=\"1.0\" encoding=\"UTF-7\"?>" + entities),
         "The update feed is not UTF-8 text."},
        {"no signature",
         offering(item("2.0").without("sparkle:edSignature")),
         "Update 2.0 in the feed has no signature."},
        {"garbled signature",
         offering(item("2.0").with("sparkle:edSignature", "====")),
         "Update 2.0 in the feed has an unusable signature."},
        {"item without a signature",
         offering(item("2.0").without("orvel:itemSignature")),
         noItemSignature},
        {"item with a garbled signature",
         offering(item("2.0").with("orvel:itemSignature", "====")),
         noItemSignature},
        {"item with the signature of its file",
         offering(item("2.0").with("orvel:itemSignature", signer_.signature("new"))),
         noItemSignature},
        {"item with the signature of another version",
         offering(item("2.0").with("orvel:itemSignature", item("1.5").signature())),
         noItemSignature},
        {"item signed with another key",
         offering({"2.0", updateURL(), "new", stranger}),
         noItemSignature},
        {"no hash",
         offering(item("2.0").without("orvel:sha256")),
         "Update 2.0 in the feed has no hash."},
        {"no length",
         offering(item("2.0").without("length")),
         "Update 2.0 in the feed has no length."},
        {"absurd length",
         offering(item("2.0").with("length", "9999999999999")),
         "Update 2.0 in the feed has an unusable length."},
        {"no address",
         offering(item("2.0").without("url")),
         "Update 2.0 in the feed has no address."},
        {"download without encryption",
         offering(item("2.0").with("url", "http://127.0.0.1/update")),
         "Update 2.0 would have to be loaded without encryption, which is refused."},
        {"no version", offering(item("")), "An update in the feed has no version."},
        {"garbled version",
         offering(item("two")),
         "An update in the feed has an unusable version."}};
    for (const Case& each : cases) {
        serveFeed = each.serve;
        EXPECT_THAT(outcome(), ElementsAre("checking", each.sentence)) << each.name;
    }
    EXPECT_EQ(server_.requests().size(), cases.size());
    EXPECT_EQ(content(place_), "old");
}

TEST_F(AppcastUpdaterDownloadTest, DoesNotOfferItemsForOtherCopies) {
    const std::vector<AppcastBuilder::Item> items = {
        item("0.9"),
        item("1.0"),
        item("1.0-rc2"),
        item("2.0").with("sparkle:arch", "aarch64"),
        item("2.0").with("sparkle:os", "macos"),
        item("2.0").without("sparkle:os"),
        item("2.0").with("type", "application/vnd.debian.binary-package"),
        item("2.0").withElement("sparkle:channel", "beta"),
        item("2.0").withElement("sparkle:minimumSystemVersion", "3")};
    for (const auto& each : items) {
        feed(AppcastBuilder().add(each).text());
        EXPECT_THAT(outcome(), ElementsAre("checking", "no update")) << each.text();
    }
    EXPECT_EQ(server_.requests().size(), items.size());
}

TEST_F(AppcastUpdaterDownloadTest, ADownloadThatCannotBeTrustedIsRefusedAndRemoved) {
    const std::string good = "new content";
    const UpdateSigner stranger;
    const auto replying = [](const std::string& text) -> LocalServer::Handler {
        return [text](Connection& connection) {
            connection.reply(200, text);
        };
    };
    struct Case {
        const char* name;
        LocalServer::Handler serve;
        AppcastBuilder::Item item;
        std::string sentence;
    };
    const std::string badSignature =
        "The signature of the update is not valid. It was not installed.";
    const std::vector<Case> cases = {
        {"garbled", replying("new cOntent"), item("2.0", good), badSignature},
        {"signature of something else",
         replying(good),
         item("2.0", good).with("sparkle:edSignature", signer_.signature("old content")),
         badSignature},
        {"another key",
         replying(good),
         item("2.0", good).with("sparkle:edSignature", stranger.signature(good)),
         badSignature},
        {"no signature but zeros",
         replying(good),
         item("2.0", good).with("sparkle:edSignature", std::string(86, 'A') + "=="),
         badSignature},
        {"an older signed file",
         replying("old content"),
         item("2.0", good).with("sparkle:edSignature", signer_.signature("old content")),
         "The update is not the file that the feed announces. It was not installed."},
        {"truncated",
         replying(good.substr(0, 5)),
         item("2.0", good),
         "The update is shorter than announced: 5 bytes instead of 11."},
        {"empty",
         replying(""),
         item("2.0", good),
         "The update is shorter than announced: 0 bytes instead of 11."},
        {"signed, but shorter than announced",
         replying(good),
         item("2.0", good).with("length", "12"),
         "The update is shorter than announced: 11 bytes instead of 12."},
        {"longer",
         replying(good + "!"),
         item("2.0", good),
         "The update is longer than the announced 11 bytes."},
        {"signed, but longer than announced",
         replying(good),
         item("2.0", good).with("length", "10"),
         "The update is longer than the announced 10 bytes."},
        {"endless",
         [](Connection& connection) {
             connection.write("HTTP/1.1 200 OK\r\n\r\n");
             const std::string block(16'384, 'x');
             while (true) {
                 connection.write(block);
             }
         },
         item("2.0", good),
         "The update is longer than the announced 11 bytes."},
        {"cut off",
         cutOff(good.size(), good.substr(0, 5)),
         item("2.0", good),
         "The update could not be loaded. The network connection was lost."},
        {"lost",
         [](Connection& connection) { connection.reset(); },
         item("2.0", good),
         "The update could not be loaded. The network connection was lost."},
        {"missing",
         answering(404),
         item("2.0", good),
         "The update could not be loaded: the server answered with status 404."},
        {"partial",
         answering(206),
         item("2.0", good),
         "The update could not be loaded: the server answered with status 206."},
        {"redirect to http",
         redirecting(302, "http://127.0.0.1/update"),
         item("2.0", good),
         "The update has moved to an address without encryption, which is refused."},
        {"redirect",
         redirecting(302, server_.url("/elsewhere")),
         item("2.0", good),
         "The update has moved to another address, which is not followed."},
        {"unknown server",
         replying(good),
         item("2.0", good).with("url", "https://127.0.0.1:99999/update"),
         "The update could not be loaded. The address of the server is not valid."}};
    for (const Case& each : cases) {
        feed(AppcastBuilder().add(each.item).text());
        serveUpdate = each.serve;
        EXPECT_EQ(outcome().back(), each.sentence) << each.name;
        EXPECT_THAT(presenter_.shown(), testing::Not(testing::Contains("ready 2.0"))) << each.name;
        EXPECT_EQ(content(place_), "old") << each.name;
        EXPECT_TRUE(waitUntil([this] { return leftovers().empty(); })) << each.name;
    }
}

TEST_F(AppcastUpdaterDownloadTest, AFullDiskIsReportedBeforeTheDownload) {
    isPackage_ = true;
    const auto downloads = folder_ / "Downloads";
    std::filesystem::create_directory(downloads);
    const SmallDisk disk(downloads, 64 * 1024);
    feedPackage(std::string(1024 * 1024, 'x'));
    const auto package = (downloads / "orvel-agent-2.0.deb").string();
    EXPECT_THAT(
        outcome(),
        ElementsAre(
            "checking",
            "update 2.0 in focus",
            "download",
            testing::StartsWith("Could not store the update beside " + package)));
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::is_empty(downloads); }));
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(AppcastUpdaterDownloadTest, APackageIsNotLoadedIntoAFolderThatOthersCanWrite) {
    isPackage_ = true;
    const auto downloads = folder_ / "Downloads";
    std::filesystem::create_directory(downloads);
    ASSERT_EQ(chmod(downloads.c_str(), 0777), 0);
    feedPackage("new content");
    EXPECT_EQ(
        outcome().back(),
        "Other users can replace files in " + downloads.string() +
            ", so the update is not stored there.");
    EXPECT_TRUE(std::filesystem::is_empty(downloads));
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(AppcastUpdaterDownloadTest, AnUpdateCanBeInstalledAfterARefusal) {
    serveUpdate = answering(503);
    EXPECT_EQ(
        outcome().back(), "The update could not be loaded: the server answered with status 503.");
    update("new content");
    EXPECT_EQ(outcome().back(), "relaunch");
}

TEST_F(AppcastUpdaterDownloadTest, ARequestContainsNothingAboutTheUser) {
    outcome();
    ASSERT_THAT(server_.requests(), SizeIs(2));
    for (const auto& request : server_.requests()) {
        EXPECT_THAT(request.headers, SizeIs(2));
        EXPECT_TRUE(request.hasHeader("Host"));
        EXPECT_TRUE(request.hasHeader("Accept"));
    }
}

} // namespace orvel::test
