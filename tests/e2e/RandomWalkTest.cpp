// SPDX-License-Identifier: Apache-2.0
//
// Random walks of the whole model, without a screen: the user, the service, the address book and
// the process itself do something at random, in between the steps of a scan. After every step, no
// request may have broken a promise. At the end, when all is well again, every message that was
// always in scope has reached the account.
//
// ORVEL_WALKS sets the number of walks, ORVEL_FIRST_WALK the seed of the first one.
#include "OrvelAgent/app/AppModel.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;
using namespace std::chrono_literals;

constexpr int defaultWalks = 50;
constexpr int stepsPerWalk = 30;
/// After so many turns of the loop without a fault, everything must have arrived.
constexpr int turnsToSettle = 60;

int numberFrom(const char* variable, int otherwise) {
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

class Walk final {
public:
    explicit Walk(unsigned seed) : random_(seed) {
        qputenv("TMPDIR", temporary_.path().c_str());
        options_.sourcePath = (directory_ / "chat.db").string();
        for (const char* handle : {"+14155550134", "ada@example.com", "+14155550199"}) {
            chats_.push_back(
                database_.addChat({.guid = handle, .participants = {database_.addHandle(handle)}}));
        }
        ContactCard card;
        card.phoneNumbers = {"+1 415 555 0134"};
        card.emailAddresses = {"ada@example.com"};
        with_.addressBook.cards = {card};
        with_.letTheUserSignIn();
        with_.urlSession.setHandler([this](const URLRequest& request) { return answer(request); });
        start();
    }

    ~Walk() {
        model_.reset();
        qunsetenv("TMPDIR");
    }

    void run() {
        for (int step = 0; step < stepsPerWalk && violations_.empty(); ++step) {
            takeStep();
            runEvents();
        }
        if (violations_.empty()) {
            settle();
        }
    }

    [[nodiscard]] const std::vector<std::string>& violations() const { return violations_; }
    [[nodiscard]] const std::vector<std::string>& steps() const { return steps_; }

private:
    static constexpr std::size_t chatOfStranger = 2;

    int pick(int count) { return std::uniform_int_distribution<>(0, count - 1)(random_); }
    bool flip() { return pick(2) == 0; }

    void note(std::string step) { steps_.push_back(std::move(step)); }
    void violate(std::string what) { violations_.push_back(std::move(what)); }

    void start() {
        model_ = std::make_unique<AppModel>(with_.platform, with_.updatePresenter, options_);
    }

    void takeStep() {
        switch (pick(14)) {
        case 0:
        case 1:
            addMessages();
            break;
        case 2:
            choose();
            break;
        case 3:
            signOutOrIn();
            break;
        case 4:
            changeSessionElsewhere();
            break;
        case 5:
            toggleAddressBook();
            break;
        case 6:
            fault_ = static_cast<Fault>(pick(faultCount));
            note(fmt::format("fault {}", static_cast<int>(fault_)));
            break;
        case 7:
            isDigestBroken_ = flip();
            note(fmt::format("digest broken: {}", isDigestBroken_));
            break;
        case 8:
            isRefreshBroken_ = flip();
            note(fmt::format("refresh broken: {}", isRefreshBroken_));
            break;
        case 9:
            kill();
            break;
        case 10:
            model_->collector().setPaused(flip());
            note(fmt::format("paused: {}", model_->collector().isPaused()));
            break;
        case 11:
            note("re-scan from the beginning");
            runTask(model_->rescanFromBeginning());
            break;
        default:
            passTime();
            break;
        }
    }

    /// Some turns of the event loop, so that the next step meets the scan anywhere.
    void runEvents() {
        if (pick(3) == 0) {
            processEvents();
        } else {
            const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(pick(12));
            static_cast<void>(waitUntil([end] { return std::chrono::steady_clock::now() >= end; }));
        }
    }

    void addMessages() {
        const auto chat = static_cast<std::size_t>(pick(3));
        const int count = pick(5) == 0 ? 520 : 1 + pick(20);
        note(fmt::format("{} messages in chat {}", count, chat));
        database_.inOneTransaction([&] {
            for (int i = 0; i < count; ++i) {
                const std::string guid = fmt::format("message-{}", ++messages_);
                database_.addMessage({.guid = guid, .text = "text", .chats = {chats_[chat]}});
                if (chat != chatOfStranger) {
                    owed_.insert(guid);
                }
            }
        });
    }

    void choose() {
        if (flip()) {
            model_->setMode(flip() ? CollectionMode::MetadataOnly : CollectionMode::WithBodies);
        } else {
            model_->setScope(flip() ? ThreadScope::KnownContactsOnly : ThreadScope::AllThreads);
        }
        note(fmt::format(
            "mode {}, scope {}",
            tavrin::rawValue(model_->mode()),
            tavrin::rawValue(model_->scope())));
    }

    void signOutOrIn() {
        if (model_->auth().isSignedIn()) {
            note("sign out");
            model_->auth().signOut();
        } else {
            signIn();
        }
    }

    void signIn() {
        browserAccount_ = pick(2);
        note(fmt::format("sign in as {}", browserAccount_));
        runTask(model_->auth().signIn());
    }

    /// As another process of the same user would.
    void changeSessionElsewhere() {
        const FakeKeychain::Name item{
            std::string(RecordingLogStore::subsystem) + ".session", "session"};
        if (flip()) {
            note("sign out elsewhere");
            with_.keychain.items.erase(item);
        } else {
            const int account = pick(2);
            note(fmt::format("sign in elsewhere as {}", account));
            with_.keychain.items[item] = fmt::format(
                R"({{"refreshToken":"refresh-{0}-{1}","uid":"uid-{0}","email":"{0}@orvel.example"}})",
                account,
                ++tokens_);
        }
    }

    void toggleAddressBook() {
        if (with_.addressBook.readError) {
            with_.addressBook.readError.reset();
        } else {
            with_.addressBook.readError.emplace("Test", 1, "The address book is away.");
        }
        note(with_.addressBook.readError ? "address book away" : "address book back");
    }

    /// Nothing that was not written before reaches the disk.
    void kill() {
        note("kill");
        with_.userDefaults.setFailsWrites(true);
        model_.reset();
        with_.userDefaults.setFailsWrites(false);
        start();
    }

    void passTime() {
        if (const auto wait = with_.clock.untilNextTimer()) {
            const double seconds = flip() ? wait->count() : wait->count() / 2;
            note(fmt::format("{:.1f} s pass", seconds));
            with_.clock.advance(tavrin::Seconds(seconds));
        }
    }

    enum class Fault { None, Busy, Refused, NoConnection, ReplyLost, Silent };
    static constexpr int faultCount = 6;

    FakeURLSession::Answer answer(const URLRequest& request) {
        const auto isTo = [&request](std::string_view path) {
            return request.url.find(path) != std::string::npos;
        };
        if (isTo(FakeService::ingestPath)) {
            checkSender(request);
            return answerUpload(request);
        }
        if (isTo(FakeService::digestPath)) {
            checkSender(request);
            return isDigestBroken_ ? URLResponse{503, "Busy."}
                                   : success(R"({"hints":["4155550134"]})");
        }
        if (isTo(FakeService::diagnosticsPath)) {
            checkSender(request);
            return success(R"({"received":1})");
        }
        if (isTo(FakeService::profilePath)) {
            const std::string account = accountOf(request);
            return success(
                fmt::format(R"({{"uid":"uid-{0}","email":"{0}@orvel.example"}})", account));
        }
        if (isTo(FakeService::deviceTokenPath)) {
            return success(R"({"customToken":"custom"})");
        }
        if (isTo(FakeService::customTokenPath)) {
            return URLResponse{
                200,
                fmt::format(
                    R"({{"idToken":"id-{0}-{1}","refreshToken":"refresh-{0}-{1}","expiresIn":"600"}})",
                    browserAccount_,
                    ++tokens_)};
        }
        if (isRefreshBroken_) {
            return URLResponse{503, ""};
        }
        const std::string body = request.body.value_or("");
        const char account = body.at(body.find("refresh-") + std::string("refresh-").size());
        return URLResponse{
            200,
            fmt::format(
                R"({{"id_token":"id-{0}-{1}","refresh_token":"refresh-{0}-{1}","expires_in":"600"}})",
                account,
                ++tokens_)};
    }

    static URLResponse success(const std::string& data) {
        return {200, fmt::format(R"({{"ok":true,"data":{}}})", data)};
    }

    /// The account of the bearer token. Empty without a token.
    static std::string accountOf(const URLRequest& request) {
        for (const auto& [name, value] : request.headers) {
            const std::string_view start = "Bearer id-";
            if (name == "Authorization" && value.starts_with(start)) {
                return value.substr(start.size(), 1);
            }
        }
        return {};
    }

    void checkSender(const URLRequest& request) {
        const std::string account = accountOf(request);
        const auto& email = model_->auth().accountEmail();
        if (account.empty()) {
            violate("a request without a token: " + request.url);
        } else if (!model_->auth().isSignedIn() || email != account + "@orvel.example") {
            violate(fmt::format(
                "a request for {} while {} is signed in: {}",
                account,
                email.value_or("nobody"),
                request.url));
        }
    }

    FakeURLSession::Answer answerUpload(const URLRequest& request) {
        const Fault fault = std::exchange(fault_, Fault::None);
        const boost::json::value payload = boost::json::parse(request.body.value());
        const boost::json::array& records = payload.at("records").as_array();
        std::set<std::string>& received = received_[accountOf(request)];
        const bool isStored = fault == Fault::None || fault == Fault::ReplyLost;
        for (const boost::json::value& record : records) {
            checkAllowed(record.as_object());
            if (isStored) {
                received.emplace(record.at("guid").as_string());
            }
        }
        switch (fault) {
        case Fault::Busy:
            return URLResponse{503, "Busy."};
        case Fault::Refused:
            return URLResponse{400, R"({"ok":false,"error":"No."})"};
        case Fault::NoConnection:
        case Fault::ReplyLost:
            return URLResult(tavrin::urlError(tavrin::URLErrorCode::NetworkConnectionLost));
        case Fault::Silent:
            return std::nullopt;
        case Fault::None:
            break;
        }
        return success(fmt::format(
            R"({{"acceptedWatermark":{},"accepted":{}}})",
            payload.at("watermark").as_int64(),
            records.size()));
    }

    void checkAllowed(const boost::json::object& record) {
        const std::string guid(record.at("guid").as_string());
        if (model_->mode() == CollectionMode::MetadataOnly && record.contains("body")) {
            violate(guid + " was sent with its text");
        }
        if (model_->scope() == ThreadScope::KnownContactsOnly && !owed_.contains(guid)) {
            violate(guid + " of a stranger was sent");
        }
    }

    /// All is well again: waits until nothing is left to send, then looks for what is missing.
    void settle() {
        note("all is well");
        fault_ = Fault::None;
        isDigestBroken_ = false;
        isRefreshBroken_ = false;
        with_.addressBook.readError.reset();
        // A silent request would wait for its timeout.
        kill();
        model_->collector().setPaused(false);
        runTask(model_->auth().restored());
        int quietScans = 0;
        for (int turn = 0; turn < turnsToSettle && quietScans < 2; ++turn) {
            if (!model_->auth().isSignedIn()) {
                signIn();
            }
            if (!waitUntil([this] { return with_.clock.untilNextTimer().has_value(); })) {
                violate("the loop has stopped");
                return;
            }
            const auto& history = model_->collector().history();
            const bool isQuiet = !history.empty() && !model_->collector().isScanning() &&
                                 !history.front().error && history.front().scanned == 0;
            quietScans = isQuiet ? quietScans + 1 : 0;
            with_.clock.advance(with_.clock.untilNextTimer().value());
        }
        if (quietScans < 2) {
            violate("there is always something left to send");
        }
        const std::string email = model_->auth().accountEmail().value_or("");
        for (const std::string& guid : owed_) {
            if (!received_[email.substr(0, 1)].contains(guid)) {
                violate(guid + " never reached " + email);
                return;
            }
        }
    }

    std::mt19937 random_;
    TemporaryDirectory directory_;
    TemporaryDirectory temporary_;
    MessagesDatabaseBuilder database_{directory_ / "chat.db"};
    std::vector<std::int64_t> chats_;
    int messages_ = 0;
    /// The messages that are in scope with every choice.
    std::set<std::string> owed_;
    /// By account.
    std::map<std::string, std::set<std::string>> received_;
    Fault fault_ = Fault::None;
    bool isDigestBroken_ = false;
    bool isRefreshBroken_ = false;
    int browserAccount_ = 0;
    int tokens_ = 0;
    std::vector<std::string> steps_;
    std::vector<std::string> violations_;
    TestPlatform with_;
    CollectorService::Options options_;
    std::unique_ptr<AppModel> model_;
};

} // namespace

TEST(RandomWalkTest, NoWalkBreaksAPromise) {
    const int walks = numberFrom("ORVEL_WALKS", defaultWalks);
    const int first = numberFrom("ORVEL_FIRST_WALK", 1);
    int violations = 0;
    for (int seed = first; seed < first + walks; ++seed) {
        Walk walk(static_cast<unsigned>(seed));
        walk.run();
        for (const std::string& violation : walk.violations()) {
            ++violations;
            ADD_FAILURE() << "walk " << seed << ": " << violation << "\nsteps:\n  "
                          << fmt::format("{}", fmt::join(walk.steps(), "\n  "));
        }
    }
    std::cout << walks << " walks, " << violations << " violations" << std::endl;
}

} // namespace orvel::test
