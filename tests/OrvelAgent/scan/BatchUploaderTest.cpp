// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/BatchUploader.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/network/APIError.h"
#include "OrvelAgent/scan/ScanDefaults.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orvel {

namespace {

using test::FakeURLSession;
using test::runTask;
using Records = IngestClient::Records;

class BatchUploaderTest : public testing::Test {
protected:
    BatchUploaderTest() {
        session_.setHandler([this](const URLRequest& request) { return answer(request); });
    }

    static tavrin::MessageRecord record(std::int64_t rowID, std::string body) {
        tavrin::MessageRecord record;
        record.guid = fmt::format("message-{}", rowID);
        record.rowID = rowID;
        record.body = std::move(body);
        return record;
    }

    static Records records(int count, const std::string& body = "text") {
        Records records;
        for (int rowID = 1; rowID <= count; ++rowID) {
            records.push_back(record(rowID, body));
        }
        return records;
    }

    void upload(Records records, std::int64_t watermark) {
        runTask(uploader_.upload(std::move(records), watermark));
    }

    /// Accepts a request with at most `mostBytes_`.
    FakeURLSession::Answer answer(const URLRequest& request) {
        const std::string& body = request.body.value();
        if (body.size() > mostBytes_) {
            return URLResponse{413, R"({"ok":false,"error":"It is too large."})"};
        }
        const boost::json::value payload = boost::json::parse(body);
        const boost::json::array& sent = payload.at("records").as_array();
        for (const boost::json::value& each : sent) {
            accepted_.push_back(each.as_object());
        }
        counts_.push_back(sent.size());
        watermarks_.push_back(payload.at("watermark").as_int64());
        if (onAccepted_) {
            onAccepted_();
        }
        return URLResponse{
            200,
            fmt::format(
                R"({{"ok":true,"data":{{"acceptedWatermark":0,"accepted":{}}}}})", sent.size())};
    }

    [[nodiscard]] std::vector<std::int64_t> acceptedRows() const {
        std::vector<std::int64_t> rows;
        for (const boost::json::object& each : accepted_) {
            rows.push_back(each.at("rowID").as_int64());
        }
        return rows;
    }

    [[nodiscard]] static std::vector<std::int64_t> rowsUpTo(std::int64_t last) {
        std::vector<std::int64_t> rows;
        for (std::int64_t row = 1; row <= last; ++row) {
            rows.push_back(row);
        }
        return rows;
    }

    [[nodiscard]] std::vector<std::string> errors() const {
        std::vector<std::string> errors;
        for (const auto& line : log_.lines()) {
            if (line.level == LogLevel::Error) {
                errors.push_back(line.message);
            }
        }
        return errors;
    }

    test::ManualClock clock_;
    test::RecordingLogStore log_;
    test::FakeBundle bundle_;
    FakeURLSession session_;
    Worker worker_;
    tavrin::CancellationSource cancellation_;
    ScanSummary summary_;
    BatchUploader uploader_{
        IngestClient(
            APIClient(
                session_,
                worker_,
                Configuration(bundle_),
                "https://api.test.example",
                {},
                IngestClient::requestTimeout),
            "0.0.0"),
        clock_,
        worker_,
        Logger(log_, "collector"),
        {},
        cancellation_.token(),
        summary_};

    std::size_t mostBytes_ = std::size_t{64} << 20U;
    std::vector<boost::json::object> accepted_;
    /// Of each accepted request.
    std::vector<std::size_t> counts_;
    std::vector<std::int64_t> watermarks_;
    std::function<void()> onAccepted_;
};

} // namespace

TEST_F(BatchUploaderTest, AnOrdinaryBatchIsOneRequest) {
    upload(records(500), 501);
    EXPECT_EQ(session_.requests().size(), 1U);
    EXPECT_EQ(acceptedRows(), rowsUpTo(500));
    EXPECT_EQ(watermarks_, (std::vector<std::int64_t>{501}));
    EXPECT_EQ(summary_.uploaded, 500);
    EXPECT_EQ(errors(), std::vector<std::string>());
}

TEST_F(BatchUploaderTest, WithoutRecordsNothingIsSent) {
    upload({}, 7);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(BatchUploaderTest, LargeMessagesAreSentInRequestsBelowTheLimit) {
    // In JSON, this character takes six bytes.
    upload(records(60, std::string(28'500, '\x01')), 60);
    ASSERT_EQ(session_.requests().size(), 3U);
    for (const URLRequest& request : session_.requests()) {
        constexpr std::size_t envelope = 200;
        EXPECT_LE(request.body.value().size(), ScanDefaults::requestSize + envelope);
    }
    EXPECT_EQ(acceptedRows(), rowsUpTo(60));
    EXPECT_EQ(summary_.uploaded, 60);
}

TEST_F(BatchUploaderTest, ALargerMessageIsSentAlone) {
    Records batch = records(3);
    batch[1].body = std::string(ScanDefaults::requestSize, 'x');
    upload(std::move(batch), 3);
    EXPECT_EQ(counts_, (std::vector<std::size_t>{1, 1, 1}));
    EXPECT_EQ(accepted_.at(1).at("body").as_string().size(), ScanDefaults::requestSize);
}

TEST_F(BatchUploaderTest, ABatchThatIsTooLargeForTheServiceIsSentInParts) {
    mostBytes_ = 20'000;
    upload(records(500), 500);
    EXPECT_EQ(acceptedRows(), rowsUpTo(500));
    EXPECT_EQ(summary_.uploaded, 500);
    EXPECT_EQ(errors(), std::vector<std::string>());
    // Not down to single messages.
    EXPECT_LT(counts_.size(), 32U);
}

TEST_F(BatchUploaderTest, TheLimitOfOneBatchDoesNotApplyToTheNext) {
    session_.enqueue(413, "");
    upload(records(10), 10);
    const auto before = session_.requests().size();
    upload(records(10), 10);
    EXPECT_EQ(session_.requests().size(), before + 1);
}

TEST_F(BatchUploaderTest, OnlyTheLastRequestCarriesTheWatermarkOfTheBatch) {
    session_.enqueue(413, "");
    upload(records(4), 9);
    EXPECT_EQ(counts_, (std::vector<std::size_t>{2, 2}));
    EXPECT_EQ(watermarks_, (std::vector<std::int64_t>{2, 9}));
}

TEST_F(BatchUploaderTest, AMessageThatIsRefusedAloneIsSentWithoutItsText) {
    mostBytes_ = 2'000;
    Records batch = records(5);
    batch[2].body = "confidential " + std::string(3'000, 'x');
    upload(std::move(batch), 5);
    EXPECT_EQ(acceptedRows(), rowsUpTo(5));
    for (const boost::json::object& each : accepted_) {
        EXPECT_EQ(each.contains("body"), each.at("rowID").as_int64() != 3);
    }
    EXPECT_EQ(summary_.uploaded, 5);
    EXPECT_EQ(
        errors(),
        std::vector<std::string>{
            "the service refused a message as too large; sending it without its text (row 3)"});
    for (const auto& line : log_.lines()) {
        EXPECT_EQ(line.message.find("confidential"), std::string::npos) << line.message;
    }
}

TEST_F(BatchUploaderTest, AMessageThatIsRefusedEvenWithoutTextIsAnError) {
    mostBytes_ = 2'000;
    Records batch = records(3);
    batch[1].participants = {std::string(3'000, 'x')};
    try {
        upload(std::move(batch), 3);
        FAIL();
    } catch (const APIError& error) {
        EXPECT_EQ(error.status(), 413);
        EXPECT_STREQ(error.what(), "It is too large.");
    }
    EXPECT_EQ(acceptedRows(), rowsUpTo(1));
    EXPECT_EQ(summary_.uploaded, 1);
    EXPECT_EQ(
        errors().back(), "the service refuses a message as too large even without a text (row 2)");
}

TEST_F(BatchUploaderTest, AMessageWithoutTextIsNotSentTwice) {
    Records batch = records(1);
    batch[0].body.reset();
    session_.enqueue(413, "");
    EXPECT_THROW(upload(std::move(batch), 1), APIError);
    EXPECT_EQ(session_.requests().size(), 1U);
}

TEST_F(BatchUploaderTest, AMessageOfManyChatsIsSentInSeveralRequests) {
    upload(Records(1'101, record(7, "text")), 7);
    EXPECT_EQ(counts_, (std::vector<std::size_t>{500, 500, 101}));
    EXPECT_EQ(watermarks_, (std::vector<std::int64_t>{7, 7, 7}));
    EXPECT_EQ(summary_.uploaded, 1'101);
}

TEST_F(BatchUploaderTest, AnotherRefusalOfAPartEndsTheUpload) {
    session_.enqueue(413, "");
    session_.enqueue(400, R"({"ok":false,"error":"bad"})");
    EXPECT_THROW(upload(records(4), 4), APIError);
    EXPECT_EQ(session_.requests().size(), 2U);
    EXPECT_EQ(summary_.uploaded, 0);
}

TEST_F(BatchUploaderTest, CancellingBetweenTwoPartsSendsNoFurtherPart) {
    session_.enqueue(413, "");
    onAccepted_ = [this] {
        cancellation_.cancel();
    };
    EXPECT_THROW(upload(records(4), 4), tavrin::TaskCancelled);
    EXPECT_LE(counts_.size(), 1U);
    EXPECT_EQ(session_.requests().size(), 2U);
}

} // namespace orvel
