// SPDX-License-Identifier: Apache-2.0
#include "service/endpoints/Endpoints.h"
#include "tests/platform/RealBundle.h"
#include "tests/service/ServiceTest.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace orvel::test {
namespace {

using testing::HasSubstr;

class UpdateEndpointsTest : public ServiceTest {
protected:
    UpdateEndpointsTest() {
        std::filesystem::create_directories(folder_ / "below");
        write(folder_ / "appcast.xml", "<rss/>");
        write(folder_ / "Agent.AppImage", update_);
        write(folder_ / "below" / "Agent.AppImage", "not this");
        write(folder_ / ".hidden", "not this");
        write(directory_ / "secret", "not this");
        options_.updates = folder_;
        start();
    }

    static void write(const std::filesystem::path& file, const std::string& text) {
        std::ofstream(file, std::ios::binary) << text;
    }

    /// Updates are served without a token.
    [[nodiscard]] Client clientWithoutToken() const {
        auto client = this->client();
        client.token.clear();
        return client;
    }

    std::filesystem::path folder_ = directory_ / "updates";
    std::string update_ = std::string(
        "\x7F"
        "ELF\0\r\n\xFF",
        8);
};

TEST_F(UpdateEndpointsTest, ServesFeedAndDownloadsWithoutAToken) {
    const auto feed = clientWithoutToken().get("/updates/appcast.xml");
    EXPECT_EQ(feed.status, 200);
    EXPECT_EQ(feed.body, "<rss/>");
    EXPECT_THAT(feed.headers, HasSubstr("Content-Type: application/xml\r\n"));

    const auto update = clientWithoutToken().get("/updates/Agent.AppImage");
    EXPECT_EQ(update.status, 200);
    EXPECT_EQ(update.body, update_);
    EXPECT_THAT(update.headers, HasSubstr("Content-Type: application/octet-stream\r\n"));
    EXPECT_THAT(update.headers, HasSubstr("Content-Length: 8\r\n"));
}

TEST_F(UpdateEndpointsTest, ServesTheCurrentContentOfAFile) {
    write(folder_ / "appcast.xml", "<rss version=\"2.0\"/>");
    write(folder_ / "new.deb", "new");
    EXPECT_EQ(clientWithoutToken().get("/updates/appcast.xml").body, "<rss version=\"2.0\"/>");
    EXPECT_EQ(clientWithoutToken().get("/updates/new.deb").body, "new");
    std::filesystem::remove(folder_ / "appcast.xml");
    EXPECT_EQ(clientWithoutToken().get("/updates/appcast.xml").status, 404);
}

TEST_F(UpdateEndpointsTest, ServesAFileOfSeveralPieces) {
    std::string content;
    for (int number = 0; content.size() < 1'000'000; ++number) {
        content += std::to_string(number) + ' ';
    }
    write(folder_ / "large.deb", content);
    const auto reply = clientWithoutToken().get("/updates/large.deb");
    EXPECT_EQ(reply.outcome, CURLE_OK) << reply.problem;
    EXPECT_TRUE(reply.body == content) << reply.body.size();
}

TEST_F(UpdateEndpointsTest, ServesAnEmptyFile) {
    write(folder_ / "empty.deb", "");
    const auto reply = clientWithoutToken().get("/updates/empty.deb");
    EXPECT_EQ(reply.outcome, CURLE_OK) << reply.problem;
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, "");
}

TEST_F(UpdateEndpointsTest, DoesNotKeepAFileInMemory) {
    // Larger than the address space that is left for it.
    write(folder_ / "huge.deb", "");
    std::filesystem::resize_file(folder_ / "huge.deb", std::uintmax_t{1} << 43U);
    EXPECT_THAT(
        clientWithoutToken().send("HEAD", "/updates/huge.deb", {}).headers,
        HasSubstr("Content-Length: 8796093022208\r\n"));
}

TEST_F(UpdateEndpointsTest, ADownloadCanBeCutOff) {
    service_->script(service::Fault::acceptThenCutOff());
    const auto reply = clientWithoutToken().get("/updates/Agent.AppImage");
    EXPECT_NE(reply.outcome, CURLE_OK);
    EXPECT_EQ(reply.body, update_.substr(0, update_.size() / 2));
}

TEST_F(UpdateEndpointsTest, ServesOnlyTheFilesOfTheFolder) {
    std::filesystem::create_symlink(directory_ / "secret", folder_ / "link");
    ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    for (const char* path :
         {"/updates",
          "/updates/",
          "/updates/missing",
          "/updates/%2a",
          "/updates/%2e",
          "/updates/%2e%2e",
          "/updates/%2e%2e%2fsecret",
          "/updates/..%2fsecret",
          "/updates/below%2f..%2f..%2fsecret",
          "/updates/%2e%2e%5csecret",
          "/updates//secret",
          "/updates/../secret",
          "/updates/below/../../secret",
          "/updates/below",
          "/updates/below/Agent.AppImage",
          "/updates/below%2fAgent.AppImage",
          "/updates/.hidden",
          "/updates/link",
          "/updates/pipe",
          "/updates/Agent.AppImage%00.xml",
          "/updates/appcast.xml%00",
          "/updates/Agent.AppImage/",
          "/Updates/Agent.AppImage"}) {
        const auto reply = clientWithoutToken().get(path);
        EXPECT_EQ(reply.status, 404) << path;
        EXPECT_EQ(reply.code(), "not_found") << path;
    }
    EXPECT_EQ(clientWithoutToken().get("/updates/" + (directory_ / "secret").string()).status, 404);
}

TEST_F(UpdateEndpointsTest, CannotBeWritten) {
    for (const char* method : {"POST", "PUT", "DELETE"}) {
        EXPECT_EQ(clientWithoutToken().send(method, "/updates/Agent.AppImage", {}, "x").status, 405)
            << method;
    }
    EXPECT_EQ(clientWithoutToken().get("/updates/Agent.AppImage").body, update_);
}

TEST_F(UpdateEndpointsTest, AreCountedAndSubjectToFaults) {
    service_->script(service::Fault::answer(503, ""));
    EXPECT_EQ(clientWithoutToken().get("/updates/appcast.xml").status, 503);
    EXPECT_EQ(clientWithoutToken().get("/updates/appcast.xml").status, 200);
    EXPECT_EQ(service_->requestCount(service::updateFeedPath), 2U);
}

TEST_F(UpdateEndpointsTest, TheLogHidesFileNames) {
    std::vector<std::string> lines;
    options_.log = [&lines](std::string_view line) {
        lines.emplace_back(line);
    };
    start();
    static_cast<void>(clientWithoutToken().get("/updates/no-such-file"));
    service_->stop();
    EXPECT_THAT(lines, testing::ElementsAre("GET /updates/* 404"));
}

TEST_F(UpdateEndpointsTest, ServesNothingWithoutAFolder) {
    options_.updates.reset();
    start();
    EXPECT_EQ(clientWithoutToken().get("/updates/appcast.xml").status, 404);
}

TEST_F(UpdateEndpointsTest, WritesTheFeedIntoTheBundleIfAKeyIsSet) {
    service_->writeBundle(directory_ / "bundle");
    EXPECT_EQ(makeRealBundle(directory_ / "bundle")->infoString("SUFeedURL"), std::nullopt);

    options_.updatePublicKey = "the key";
    start();
    service_->writeBundle(directory_ / "bundle");
    const auto bundle = makeRealBundle(directory_ / "bundle");
    EXPECT_EQ(bundle->infoString("SUFeedURL"), service_->url() + "/updates/appcast.xml");
    EXPECT_EQ(bundle->infoString("SUPublicEDKey"), "the key");
    EXPECT_NE(bundle->infoString("CFBundleVersion").value_or(""), "");
}

} // namespace
} // namespace orvel::test
