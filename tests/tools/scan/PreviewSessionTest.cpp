// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/PreviewSession.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/JSON.h"
#include "tests/support/RunTask.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace orvel {

namespace {

class PreviewSessionTest : public testing::Test {
protected:
    static URLResult send(PreviewSession& session, std::string path, std::string body) {
        URLRequest request;
        request.url = "https://api.test.example" + path;
        request.method = "POST";
        request.body = std::move(body);
        std::optional<URLResult> result;
        const auto task =
            session.start(std::move(request), [&](URLResult value) { result = std::move(value); });
        EXPECT_FALSE(result) << "it called back before start returned";
        test::processEvents();
        return result.value();
    }

    std::string content() const {
        std::ifstream file(path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    test::TemporaryDirectory directory_;
    std::filesystem::path path_ = directory_ / "preview.jsonl";
};

} // namespace

TEST_F(PreviewSessionTest, WritesRecordsAsTheyWouldBeSent) {
    PreviewSession session(path_, {});
    const URLResult result = send(
        session,
        "/api/v1/context/ingest",
        R"({"source":"imessage","records":[{"b":1,"a":"é\n"},{"c":null}],"watermark":7})");
    const auto& response = std::get<URLResponse>(result);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, R"({"ok":true,"data":{"acceptedWatermark":7,"accepted":2}})");
    EXPECT_EQ(content(), "{\"b\":1,\"a\":\"é\\n\"}\n{\"c\":null}\n");
}

TEST_F(PreviewSessionTest, ControlsNoTerminal) {
    const std::string text = "caf\u00e9 \u009b2J \u007f \u061c \u200e \u2028 \u202e \u2066 \u20ac";
    const std::string upload = R"({"records":[{"body":")" + text + R"("}],"watermark":7})";

    const tavrin::FileDescriptor reader(posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_EQ(grantpt(reader.get()), 0);
    ASSERT_EQ(unlockpt(reader.get()), 0);
    PreviewSession onTerminal(std::filesystem::path(ptsname(reader.get())), {});
    send(onTerminal, "/api/v1/context/ingest", upload);
    std::array<char, 4096> shown{};
    const ssize_t size = read(reader.get(), shown.data(), shown.size());
    EXPECT_EQ(
        std::string(shown.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))),
        "{\"body\":\"caf\u00e9 \\u009b2J \\u007f \\u061c \\u200e \\u2028 \\u202e \\u2066 "
        "\u20ac\"}\r\n");

    PreviewSession inFile(path_, {});
    send(inFile, "/api/v1/context/ingest", upload);
    EXPECT_EQ(content(), "{\"body\":\"" + text + "\"}\n") << "a file has what is uploaded";
}

TEST_F(PreviewSessionTest, AnswersWithTheKnownHandles) {
    PreviewSession session(path_, {"4155550134"});
    const URLResult result = send(session, "/api/v1/context/handle-digest", "{}");
    EXPECT_EQ(std::get<URLResponse>(result).body, R"({"ok":true,"data":{"hints":["4155550134"]}})");
}

TEST_F(PreviewSessionTest, AFileThatCannotBeCreatedIsAnError) {
    EXPECT_THROW(PreviewSession(directory_ / "no" / "such", {}), tavrin::PlatformError);
}

TEST_F(PreviewSessionTest, AnExistingFileIsReplacedAndPrivate) {
    std::ofstream(path_) << "an older and much longer preview\n";
    chmod(path_.c_str(), 0666);
    {
        PreviewSession session(path_, {});
        send(session, "/api/v1/context/ingest", R"({"records":[1],"watermark":7})");
    }
    EXPECT_EQ(content(), "1\n");
    EXPECT_EQ(
        std::filesystem::status(path_).permissions(),
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(PreviewSessionTest, WhatAnotherUserMayHavePutThereIsLeftAlone) {
    const std::filesystem::path precious = directory_ / "precious";
    std::ofstream(precious) << "precious";
    const auto put = [&](const char* what) {
        const std::string kind = what;
        if (kind == "link") {
            std::filesystem::create_symlink(precious, path_);
        } else if (kind == "second name") {
            std::filesystem::create_hard_link(precious, path_);
        } else {
            mkfifo(path_.c_str(), 0666);
        }
    };
    for (const char* const what : {"link", "second name", "pipe"}) {
        put(what);
        EXPECT_THROW(PreviewSession(path_, {}), tavrin::PlatformError) << what;
        std::filesystem::remove(path_);
    }
    std::ifstream file(precious);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "precious");
}

TEST_F(PreviewSessionTest, AFullDiskFailsTheUpload) {
    const test::SmallDisk disk(directory_.path(), 4096);
    PreviewSession session(directory_ / "preview", {});
    const std::string large(20'000, 'x');
    const URLResult result = send(
        session,
        "/api/v1/context/ingest",
        R"({"records":[{"a":")" + large + R"("}],"watermark":7})");
    ASSERT_TRUE(std::holds_alternative<tavrin::URLError>(result));
    EXPECT_NE(
        std::string(std::get<tavrin::URLError>(result).what()).find("Could not write the preview"),
        std::string::npos);
}

TEST_F(PreviewSessionTest, KnownHandlesAreAListOfStrings) {
    const auto read = [this](const char* text) {
        std::ofstream(path_) << text;
        return readKnownHandles(path_);
    };
    EXPECT_EQ(read(R"(["a","b"])"), (std::vector<std::string>{"a", "b"}));
    EXPECT_THROW(read(R"({"hints":[]})"), tavrin::JSONDecodingError);
    EXPECT_THROW(read("[1]"), tavrin::JSONDecodingError);
    EXPECT_THROW(read("nothing"), tavrin::JSONDecodingError);
    EXPECT_THROW(readKnownHandles(directory_ / "missing"), tavrin::PlatformError);
}

} // namespace orvel
