// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateFeedReader.h"

#include "platform/linux/update/Appcast.h"
#include "tests/support/AppcastBuilder.h"
#include "tests/support/RunTask.h"
#include "tests/support/UpdateSigner.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeURLSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <optional>
#include <string>
#include <variant>

namespace orvel::test {

namespace {

using Result = UpdateFeedReader::Result;

double seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

class UpdateFeedReaderTest : public testing::Test {
protected:
    UpdateFeedReaderTest() {
        session_.setHandler([this](const URLRequest&) { return URLResponse{200, feed_}; });
    }

    void read() {
        result_.reset();
        reader_.read(
            "https://h/feed.xml",
            {*UpdateVersion::parse("1.0"),
             "x86_64",
             "application/vnd.appimage",
             *UpdateVersion::parse("2.36")},
            *UpdateKey::fromBase64(signer_.publicKey()),
            [this](const Result& result) { result_ = result; });
    }

    /// The version found, or the failure.
    std::string outcome() {
        read();
        EXPECT_TRUE(waitUntil([this] { return result_.has_value(); }));
        EXPECT_FALSE(reader_.isReading());
        if (const auto* failure = std::get_if<std::string>(&*result_)) {
            return *failure;
        }
        const auto& offer = std::get<std::optional<UpdateOffer>>(*result_);
        return offer ? offer->update.version : "nothing";
    }

    void offer(const AppcastBuilder::Item& item) { feed_ = AppcastBuilder().add(item).text(); }
    [[nodiscard]] AppcastBuilder::Item item(const std::string& version) const {
        return {version, "https://h/update", "new", signer_};
    }

    UpdateSigner signer_;
    std::string feed_ = AppcastBuilder().text();
    FakeURLSession session_;
    std::optional<Result> result_;
    UpdateFeedReader reader_{session_};
};

} // namespace

TEST_F(UpdateFeedReaderTest, FindsASignedUpdate) {
    EXPECT_EQ(outcome(), "nothing");
    offer(item("2.0"));
    EXPECT_EQ(outcome(), "2.0");
}

TEST_F(UpdateFeedReaderTest, TheMinimumSystemVersionOfAnItemIsSigned) {
    offer(item("2.0").withElement("sparkle:minimumSystemVersion", "2.36"));
    EXPECT_EQ(outcome(), "2.0");
}

TEST_F(UpdateFeedReaderTest, ReportsWhyAFeedCannotBeUsed) {
    offer({"2.0", "https://h/update", "new", UpdateSigner()});
    EXPECT_EQ(
        outcome(),
        "The entry of update 2.0 in the feed has no valid signature. It is not offered.");
    feed_ = "garbage";
    EXPECT_EQ(outcome(), "The update feed is not well-formed in line 1.");
}

TEST_F(UpdateFeedReaderTest, AFeedWithAnItemForEachSystemOffersTheOwn) {
    AppcastBuilder feed;
    feed.add(item("2.1").with("sparkle:arch", "aarch64"));
    feed.add(item("2.0"));
    feed.add(item("2.2").with("type", "application/vnd.debian.binary-package"));
    feed.add(item("2.3").with("sparkle:os", "macos").without("orvel:itemSignature"));
    feed_ = feed.text();
    EXPECT_EQ(outcome(), "2.0");
}

TEST_F(UpdateFeedReaderTest, AnItemOfAnotherSystemCannotBeRelabelled) {
    const std::string itsSignature = item("2.0").with("sparkle:arch", "aarch64").signature();
    offer(item("2.0").with("orvel:itemSignature", itsSignature));
    EXPECT_THAT(outcome(), testing::HasSubstr("no valid signature"));
}

TEST_F(UpdateFeedReaderTest, AHostileFeedDoesNotOccupyTheCallersThread) {
    feed_ = "<rss version='2.0'><channel><item><enclosure";
    for (int index = 0; index < 100'000; ++index) {
        feed_ += " a" + std::to_string(index) + "=''";
    }
    feed_ += "/></item></channel></rss>";
    ASSERT_LT(feed_.size(), maximumAppcastBytes);
    const double own = seconds(CLOCK_THREAD_CPUTIME_ID);
    const double all = seconds(CLOCK_PROCESS_CPUTIME_ID);
    EXPECT_EQ(outcome(), "nothing");
    EXPECT_LT(
        seconds(CLOCK_THREAD_CPUTIME_ID) - own, (seconds(CLOCK_PROCESS_CPUTIME_ID) - all) / 2);
}

TEST_F(UpdateFeedReaderTest, NothingFollowsACancellation) {
    offer(item("2.0"));
    session_.enqueue(FakeURLSession::Answer());
    read();
    reader_.cancel();
    EXPECT_FALSE(reader_.isReading());
    processEvents();
    EXPECT_EQ(session_.inFlight(), 0U);

    read();
    ASSERT_TRUE(waitUntil([this] { return session_.inFlight() == 0; }));
    reader_.cancel();
    feed_ = AppcastBuilder().text();
    EXPECT_EQ(outcome(), "nothing");
}

} // namespace orvel::test
