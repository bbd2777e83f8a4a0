// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/scan/ScanRun.h"
#include "service/LocalService.h"
#include "tests/campaign/FaultyConnections.h"
#include "tests/platform/RealURLSession.h"
#include "tests/support/Campaign.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <QTimer>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using namespace std::chrono_literals;
using service::LocalService;
using Faulty = FaultyConnections::Fault;
using Summary = CollectorService::ScanSummary;

constexpr const char* ingestPath = "/api/v1/context/ingest";
constexpr const char* token = "bearer-token-of-the-campaign";
constexpr int messagesPerFault = 2;
constexpr tavrin::Seconds generousTimeout(20);
constexpr tavrin::Seconds shortTimeout(0.5);

/// The date jumps, and waits are over at once.
class JumpingClock final : public Clock {
public:
    void jumpTo(tavrin::Date date) { offset_ = date - now(); }
    void jumpBack() { offset_ = {}; }

    [[nodiscard]] tavrin::Date now() const override { return system() + offset_; }
    [[nodiscard]] tavrin::Seconds uptime() const override {
        return std::chrono::steady_clock::now().time_since_epoch();
    }
    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds, std::function<void()> callback) override {
        return std::make_unique<SoonTimer>(std::move(callback));
    }

private:
    class SoonTimer final : public Timer {
    public:
        explicit SoonTimer(std::function<void()> callback) {
            timer_.setSingleShot(true);
            timer_.callOnTimeout(std::move(callback));
            timer_.start(0);
        }

    private:
        QTimer timer_;
    };

    [[nodiscard]] static tavrin::Date system() {
        return tavrin::Date(std::chrono::system_clock::now().time_since_epoch());
    }

    tavrin::Seconds offset_{};
};

QCoro::Task<std::optional<tavrin::Secret>> currentToken() {
    const std::optional<tavrin::Secret> result = tavrin::Secret(token);
    co_return result;
}

QCoro::Task<> endSession(tavrin::CancellationSource end) {
    end.cancel();
    co_return;
}

QCoro::Task<std::optional<AccountSession>> newSession() {
    const tavrin::CancellationSource end;
    AccountSession session;
    session.account = "uid-1";
    session.ended = end.token();
    session.tokenProvider = currentToken;
    session.onSessionExpired = [end] {
        return endSession(end);
    };
    co_return session;
}

/// An agent's scans of one history, through connections that can be broken, to a real service.
class Scans final {
public:
    Scans() {
        qputenv("TMPDIR", temporary_.path().c_str());
        chat_ = database_.addChat({.participants = {database_.addHandle("+14155550134")}});
        service_.start();
        connections_ = std::make_unique<FaultyConnections>(service_.port());
        with_.bundle.setInfo("API_HOST", fmt::format("127.0.0.1:{}", connections_->port()));
        urlSession_ = makeRealURLSession({service_.caFile()});
        configuration_ = std::make_unique<Configuration>(with_.bundle);
        setRequestTimeout(generousTimeout);
    }

    ~Scans() {
        worker_.stop();
        qunsetenv("TMPDIR");
    }

    [[nodiscard]] LocalService& service() { return service_; }
    [[nodiscard]] FaultyConnections& connections() { return *connections_; }
    [[nodiscard]] JumpingClock& clock() { return clock_; }

    void setRequestTimeout(tavrin::Seconds timeout) {
        scanRun_.reset();
        collector_.reset();
        const IngestClient ingest(
            APIClient(
                *urlSession_, worker_, *configuration_, configuration_->apiBaseURL(), {}, timeout),
            "1.2.3");
        CollectorService::Options options;
        options.sourcePath = (directory_ / "chat.db").string();
        collector_ = std::make_unique<CollectorService>(
            watermarkStore_, ingest, with_.fileCopier, clock_, worker_, with_.logStore, options);
        scanRun_ = std::make_unique<ScanRun>(
            ScanRun::Services{
                ingest,
                contacts_,
                *collector_,
                clock_,
                [](tavrin::CancellationToken) {
                    return newSession();
                }},
            choices_,
            Logger(with_.logStore, "test"));
    }

    void setScope(tavrin::ThreadScope scope) { choices_.scope = scope; }

    void addMessages() {
        database_.inOneTransaction([this] {
            for (int i = 0; i < messagesPerFault; ++i) {
                ++messages_;
                database_.addMessage(
                    {.guid = fmt::format("message-{}", messages_),
                     .text = fmt::format("text {}", messages_),
                     .chats = {chat_}});
            }
        });
    }

    /// Returns the error, or no value after a success.
    std::optional<std::string> scan() {
        try {
            const std::optional<Summary> summary =
                runTask(scanRun_->run(ScanRun::AddressBookUse::None, std::nullopt, {}));
            if (!summary) {
                return "the session has ended";
            }
            return summary->error;
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    /// What is wrong when all faults are over. Empty if nothing is.
    [[nodiscard]] std::vector<std::string> violations() {
        std::vector<std::string> found;
        if (service_.storedCount() != static_cast<std::size_t>(messages_)) {
            found.push_back(
                fmt::format("{} messages, but {} stored", messages_, service_.storedCount()));
        }
        if (watermarkStore_.watermark() != messages_ || !watermarkStore_.isBackfillDone()) {
            found.push_back(fmt::format("the watermark is {}", watermarkStore_.watermark()));
        }
        if (!std::filesystem::is_empty(temporary_.path())) {
            found.emplace_back("a copy of the database is left");
        }
        const auto lines = with_.logStore.lines();
        for (; readLines_ < lines.size(); ++readLines_) {
            const std::string& line = lines[readLines_].message;
            if (line.find(token) != std::string::npos) {
                found.push_back("the log shows the token: " + line);
            }
        }
        return found;
    }

private:
    static LocalService::Options options(const TemporaryDirectory& directory) {
        LocalService::Options options;
        options.store = directory / "records.sqlite";
        options.certificates = directory / "certificates";
        options.tokens = {token};
        options.knownHandles = {"+14155550134"};
        return options;
    }

    TemporaryDirectory directory_;
    TemporaryDirectory temporary_;
    MessagesDatabaseBuilder database_{directory_ / "chat.db"};
    std::int64_t chat_ = 0;
    int messages_ = 0;
    std::size_t readLines_ = 0;
    LocalService service_{options(directory_)};
    std::unique_ptr<FaultyConnections> connections_;
    TestPlatform with_;
    std::unique_ptr<URLSession> urlSession_;
    std::unique_ptr<Configuration> configuration_;
    JumpingClock clock_;
    Worker worker_;
    ContactBridge contacts_{with_.addressBook, worker_, with_.logStore};
    WatermarkStore watermarkStore_{with_.userDefaults};
    ScanRun::Choices choices_;
    std::unique_ptr<CollectorService> collector_;
    std::unique_ptr<ScanRun> scanRun_;
};

/// The faults, by number. There are at most `mostFaults`, the target of the campaign.
class Faults final {
public:
    explicit Faults(Scans& scans) : scans_(scans) {
        scans_.connections().arm({.after = SIZE_MAX});
        scans_.addMessages();
        EXPECT_EQ(scans_.scan(), std::nullopt);
        request_ = rounded(scans_.connections().passed(Faulty::Side::Request));
        reply_ = rounded(scans_.connections().passed(Faulty::Side::Reply));
        scans_.connections().disarm();
    }

    /// Successive seeds give faults of all kinds. As many seeds as there are faults give each once.
    [[nodiscard]] int number(unsigned seed) const {
        constexpr std::size_t stride = 2'003;
        const std::size_t count =
            statuses + request_ + reply_ + stalls() + garbage + clockJumps + lateReplies;
        EXPECT_LE(count, std::size_t{mostFaults});
        EXPECT_EQ(std::gcd(count, stride), 1U);
        return static_cast<int>(seed * stride % count);
    }

    /// Returns what it is.
    std::string cause(int number) {
        auto index = static_cast<std::size_t>(number);
        if (index < statuses) {
            const int status = 100 + static_cast<int>(index);
            // The client waits for a further reply.
            scans_.setRequestTimeout(status < 200 ? shortTimeout : generousTimeout);
            scans_.service().script(
                {.path = ingestPath, .reply = service::Reply{.status = status}});
            return fmt::format("status {}", status);
        }
        index -= statuses;
        scans_.setRequestTimeout(generousTimeout);
        if (index < request_) {
            scans_.connections().arm({Faulty::Side::Request, index, Faulty::Effect::Reset});
            return fmt::format("reset after byte {} of the requests", index);
        }
        index -= request_;
        if (index < reply_) {
            scans_.connections().arm({Faulty::Side::Reply, index, Faulty::Effect::Reset});
            return fmt::format("reset after byte {} of the replies", index);
        }
        index -= reply_;
        if (index < stalls()) {
            const bool isRequest = index * stallDistance < request_;
            const std::size_t after = index * stallDistance - (isRequest ? 0 : request_);
            scans_.setRequestTimeout(shortTimeout);
            scans_.connections().arm(
                {isRequest ? Faulty::Side::Request : Faulty::Side::Reply,
                 after,
                 Faulty::Effect::Stall});
            return fmt::format(
                "silence after byte {} of the {}", after, isRequest ? "requests" : "replies");
        }
        index -= stalls();
        if (index < garbage) {
            return causeGarbage(index);
        }
        index -= garbage;
        if (index < clockJumps) {
            // From the year 1970 to the year 2369.
            const tavrin::Date date(tavrin::Seconds(static_cast<double>(index) * 126'000'000.0));
            scans_.clock().jumpTo(date);
            return fmt::format("the clock jumps to {:.0f}", date.time_since_epoch().count());
        }
        index -= clockJumps;
        scans_.setRequestTimeout(shortTimeout);
        service::Fault late = service::Fault::delayed(2s);
        late.path = ingestPath;
        scans_.service().script(late);
        return fmt::format("a late reply ({})", index);
    }

    void end() {
        scans_.clock().jumpBack();
        scans_.service().clearFaults();
        scans_.setRequestTimeout(generousTimeout);
        scans_.connections().disarm();
    }

private:
    static constexpr std::size_t mostFaults = 7'000;
    static constexpr std::size_t statuses = 500;
    static constexpr std::size_t stallDistance = 64;
    static constexpr std::size_t garbage = 200;
    static constexpr std::size_t clockJumps = 100;
    static constexpr std::size_t lateReplies = 10;

    /// The length of a signature varies by a few bytes, but a seed must always give the same fault.
    static std::size_t rounded(std::size_t bytes) {
        constexpr std::size_t unit = 256;
        return (bytes / unit + 1) * unit;
    }

    [[nodiscard]] std::size_t stalls() const { return (request_ + reply_) / stallDistance; }

    /// Bytes in place of the TLS handshake, and in place of the reply's JSON.
    std::string causeGarbage(std::size_t index) {
        std::mt19937 random(static_cast<unsigned>(index));
        std::string bytes(random() % 3000, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        if (index % 2 == 0) {
            scans_.connections().arm(
                {Faulty::Side::Reply, random() % reply_, Faulty::Effect::Garbage, bytes});
        } else {
            service::Fault fault = service::Fault::answer(200, bytes);
            fault.path = ingestPath;
            scans_.service().script(fault);
        }
        return fmt::format("garbage of seed {}", index);
    }

    Scans& scans_;
    std::size_t request_ = 0;
    std::size_t reply_ = 0;
};

} // namespace

// After each fault, every message is stored once, and the progress is saved. A scan that fails says
// why.
TEST(ServiceFaultsTest, NoFaultLosesOrDuplicatesAMessage) {
    Scans scans;
    Faults faults(scans);
    runCampaign(60, [&](unsigned seed) {
        CampaignResult result;
        const int number = faults.number(seed);
        scans.setScope(
            number % 2 == 0 ? tavrin::ThreadScope::AllThreads
                            : tavrin::ThreadScope::KnownContactsOnly);
        scans.addMessages();
        const std::string what = faults.cause(number);
        const auto find = [&](const std::string& violation) {
            result.findings.push_back(what + ": " + violation);
        };
        const auto error = scans.scan();
        faults.end();
        if (error && error->empty()) {
            find("the scan fails without an error");
        }
        if (error) {
            if (const auto next = scans.scan()) {
                find("the next scan fails: " + *next);
            }
        }
        for (const std::string& violation : scans.violations()) {
            find(violation);
        }
        return result;
    });
}

} // namespace orvel::test
