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
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;

constexpr int defaultWalks = 50;
constexpr int stepsPerWalk = 50;
constexpr int maximalTurnsExponent = 12;
/// Of the pauses between two batches and before a retry.
constexpr tavrin::Seconds longestPause(45);
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
        if (pick(4) > 0) {
            storeSession(newSession(0));
        }
        for (std::size_t chat = 0; chat < chats_.size(); ++chat) {
            addMessages(chat, pick(700));
        }
        start();
    }

    ~Walk() {
        model_.reset();
        qunsetenv("TMPDIR");
    }

    void run() {
        for (int step = 0; step < stepsPerWalk && violations_.empty(); ++step) {
            takeStep();
            ++steps_;
            runEvents();
        }
        if (violations_.empty()) {
            settle();
        }
    }

    [[nodiscard]] const std::vector<std::string>& violations() const { return violations_; }

    [[nodiscard]] int steps() const { return steps_; }
    [[nodiscard]] int batches() const { return batches_; }

    /// The steps, each followed by the lines that it wrote to the log.
    [[nodiscard]] std::vector<std::string> story() {
        noteLog();
        return story_;
    }

private:
    static constexpr std::size_t chatOfStranger = 2;

    struct SignIn {
        int account = 0;
        /// Different for each sign-in.
        int number = 0;
    };

    int pick(int count) { return std::uniform_int_distribution<>(0, count - 1)(random_); }
    bool flip() { return pick(2) == 0; }

    void note(std::string step) {
        noteLog();
        story_.push_back(std::move(step));
    }

    void noteLog() {
        const auto lines = with_.logStore.lines();
        for (; notedLines_ < lines.size(); ++notedLines_) {
            const auto& line = lines[notedLines_];
            story_.push_back(fmt::format("    [{}] {}", line.category, line.message));
        }
    }

    void violate(std::string what) { violations_.push_back(std::move(what)); }

    void start() {
        model_ = std::make_unique<AppModel>(with_.platform, with_.updatePresenter, options_);
        const CollectorService& collector = model_->collector();
        QObject::connect(&collector, &CollectorService::changed, &collector, [this, &collector] {
            if (!collector.isScanning()) {
                scanSession_.reset();
            }
        });
    }

    void takeStep() {
        if (!model_->auth().isSignedIn() && pick(3) == 0) {
            signIn();
            return;
        }
        switch (pick(26)) {
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
            isDigestBroken_ = !isDigestBroken_ && flip();
            note(fmt::format("digest broken: {}", isDigestBroken_));
            break;
        case 8:
            isRefreshBroken_ = !isRefreshBroken_ && flip();
            note(fmt::format("refresh broken: {}", isRefreshBroken_));
            break;
        case 9:
            kill();
            break;
        case 10:
            model_->collector().setPaused(!model_->collector().isPaused() && flip());
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

    /// Some turns of the event loop, so that the next step meets the scan anywhere. Often until the
    /// scan waits for time or a reply, because the threads would seldom come that far otherwise.
    void runEvents() {
        for (int turns = 1 << pick(maximalTurnsExponent); turns > 0; --turns) {
            processEvents();
        }
        if (pick(3) > 0 && !waitUntil([this] { return isScanWaiting(); })) {
            violate("the scan neither ends nor waits");
        }
    }

    [[nodiscard]] bool isScanWaiting() const {
        const auto isShort = [](tavrin::Seconds wait) {
            return wait <= longestPause;
        };
        return !model_->collector().isScanning() || with_.urlSession.inFlight() > 0 ||
               std::ranges::any_of(with_.clock.untilTimers(), isShort);
    }

    void addMessages() {
        const auto chat = static_cast<std::size_t>(pick(3));
        addMessages(chat, pick(5) == 0 ? 520 : 1 + pick(20));
    }

    void addMessages(std::size_t chat, int count) {
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
        browserSession_ = newSession(pick(2));
        note(fmt::format("sign in as {}", browserSession_.account));
        if (!model_->collector().isScanning()) {
            scanSession_.reset();
        }
        runTask(model_->auth().signIn());
    }

    /// As another process of the same user would.
    void changeSessionElsewhere() {
        if (flip()) {
            note("sign out elsewhere");
            with_.keychain.items.erase(sessionItem());
            return;
        }
        // The same account's session may go on, as after a refresh by that process.
        const int account = pick(2);
        const auto known = latestSessions_.find(account);
        const SignIn session = known != latestSessions_.end() ? known->second : newSession(account);
        note(fmt::format("sign in elsewhere as {}", session.account));
        storeSession(session);
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
        const double next = with_.clock.untilNextTimer().value_or(tavrin::Seconds(1)).count();
        // A retry, the next batch, the timeout of a request, the next scan.
        const std::vector<double> choices = model_->collector().isScanning()
                                                ? std::vector<double>{next, next / 2, 6, 16, 70}
                                                : std::vector<double>{next, 70, 1000, 1000};
        const double seconds =
            choices.at(static_cast<std::size_t>(pick(static_cast<int>(choices.size()))));
        note(fmt::format("{:.1f} s pass", seconds));
        with_.clock.advance(tavrin::Seconds(seconds));
    }

    enum class Fault { None, Busy, Refused, NoConnection, ReplyLost, Silent };
    static constexpr int faultCount = 6;

    FakeURLSession::Answer answer(const URLRequest& request) {
        const auto isTo = [&request](std::string_view path) {
            return request.url.find(path) != std::string::npos;
        };
        if (isTo(FakeService::ingestPath)) {
            checkSender(request, false);
            return answerUpload(request);
        }
        if (isTo(FakeService::digestPath)) {
            checkSender(request, true);
            return isDigestBroken_ ? URLResponse{503, "Busy."}
                                   : success(R"({"hints":["4155550134"]})");
        }
        if (isTo(FakeService::diagnosticsPath)) {
            checkSender(request, false);
            return success(R"({"received":1})");
        }
        if (isTo(FakeService::profilePath)) {
            return success(fmt::format(
                R"({{"uid":"uid-{0}","email":"{0}@orvel.example"}})", senderOf(request)->account));
        }
        if (isTo(FakeService::deviceTokenPath)) {
            return success(R"({"customToken":"custom","uid":"uid"})");
        }
        if (isTo(FakeService::customTokenPath)) {
            return URLResponse{
                200,
                fmt::format(
                    R"({{"idToken":"{}","refreshToken":"{}","expiresIn":"600"}})",
                    newToken("id-", browserSession_),
                    newToken("refresh-", browserSession_))};
        }
        if (isRefreshBroken_) {
            return URLResponse{503, ""};
        }
        const SignIn session = signInOf(request.body.value(), "refresh-").value();
        return URLResponse{
            200,
            fmt::format(
                R"({{"id_token":"{}","refresh_token":"{}","expires_in":"600"}})",
                newToken("id-", session),
                newToken("refresh-", session))};
    }

    static URLResponse success(const std::string& data) {
        return {200, fmt::format(R"({{"ok":true,"data":{}}})", data)};
    }

    static FakeKeychain::Name sessionItem() {
        return {std::string(RecordingLogStore::subsystem) + ".session", "session"};
    }

    SignIn newSession(int account) {
        return latestSessions_[account] = SignIn{account, ++sessions_};
    }

    std::string newToken(std::string_view kind, const SignIn& session) {
        return fmt::format("{}{}-{}-{}", kind, session.account, session.number, ++tokens_);
    }

    void storeSession(const SignIn& session) {
        with_.keychain.items[sessionItem()] = fmt::format(
            R"({{"refreshToken":"{0}","uid":"uid-{1}","email":"{1}@orvel.example"}})",
            newToken("refresh-", session),
            session.account);
    }

    /// The sign-in that the first token of that kind in the text belongs to.
    static std::optional<SignIn> signInOf(std::string_view text, std::string_view kind) {
        const auto at = text.find(kind);
        if (at == std::string_view::npos) {
            return std::nullopt;
        }
        std::istringstream token(std::string(text.substr(at + kind.size())));
        SignIn session;
        char dash = 0;
        token >> session.account >> dash >> session.number;
        return session;
    }

    static std::optional<SignIn> senderOf(const URLRequest& request) {
        for (const auto& [name, value] : request.headers) {
            if (name == "Authorization") {
                return signInOf(value, "id-");
            }
        }
        return std::nullopt;
    }

    /// A scan begins with the request of the known handles, unless there is no token for it.
    void checkSender(const URLRequest& request, bool isScanStart) {
        const std::optional<SignIn> sender = senderOf(request);
        if (!sender) {
            violate("a request without a token: " + request.url);
            return;
        }
        const auto& email = model_->auth().accountEmail();
        if (!model_->auth().isSignedIn() ||
            (email && email != fmt::format("{}@orvel.example", sender->account))) {
            violate(fmt::format(
                "a request for {} while {} is signed in: {}",
                sender->account,
                email.value_or("nobody"),
                request.url));
        }
        if (isScanStart || !scanSession_) {
            scanSession_ = sender->number;
        } else if (scanSession_ != sender->number) {
            violate("a request of another sign-in than the scan's: " + request.url);
        }
    }

    FakeURLSession::Answer answerUpload(const URLRequest& request) {
        ++batches_;
        const Fault fault = std::exchange(fault_, Fault::None);
        const boost::json::value payload = boost::json::parse(request.body.value());
        const boost::json::array& records = payload.at("records").as_array();
        std::set<std::string>& received = received_[senderOf(request)->account];
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
        const auto stored = with_.keychain.items.find(sessionItem());
        if (stored == with_.keychain.items.end()) {
            violate("signed in without a stored session");
            return;
        }
        const int account = signInOf(stored->second, "refresh-").value().account;
        for (const std::string& guid : owed_) {
            if (!received_[account].contains(guid)) {
                violate(fmt::format("{} never reached account {}", guid, account));
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
    int steps_ = 0;
    int batches_ = 0;
    /// The messages that are in scope with every choice.
    std::set<std::string> owed_;
    /// By account.
    std::map<int, std::set<std::string>> received_;
    Fault fault_ = Fault::None;
    bool isDigestBroken_ = false;
    bool isRefreshBroken_ = false;
    SignIn browserSession_;
    int sessions_ = 0;
    /// By account.
    std::map<int, SignIn> latestSessions_;
    /// The number of the sign-in that the last scan began with.
    std::optional<int> scanSession_;
    int tokens_ = 0;
    std::vector<std::string> story_;
    std::size_t notedLines_ = 0;
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
    int steps = 0;
    int batches = 0;
    for (int seed = first; seed < first + walks; ++seed) {
        Walk walk(static_cast<unsigned>(seed));
        walk.run();
        steps += walk.steps();
        batches += walk.batches();
        for (const std::string& violation : walk.violations()) {
            ++violations;
            ADD_FAILURE() << "walk " << seed << ": " << violation << "\nsteps and log:\n  "
                          << fmt::format("{}", fmt::join(walk.story(), "\n  "));
        }
    }
    std::cout << walks << " walks, " << steps << " steps, " << batches << " batches, " << violations
              << " violations" << std::endl;
}

} // namespace orvel::test
