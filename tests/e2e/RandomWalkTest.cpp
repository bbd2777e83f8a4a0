// SPDX-License-Identifier: Apache-2.0
//
// Random walks of the whole model, without a screen: the user, the service, the address book, the
// keychain and the process itself do something at random, in between the steps of a scan.
//
// No request may violate an invariant:
// - It has a token, of the sign-in in force and of the one that its run began with.
// - The mode and the scope in force allow each record.
// - The saved progress does not cover any record, so a message is sent again only after its batch
//   was not accepted, or after the progress was taken back.
//
// Then all faults end, and everything in scope must reach the account.
//
// ./test --campaign runs many walks.
#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/scan/WatermarkStore.h"
#include "tests/support/Campaign.h"
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

constexpr int walksInTest = 50;
constexpr int stepsPerWalk = 50;
constexpr int maximalTurnsExponent = 12;
/// Of the pauses between two batches and before a retry.
constexpr tavrin::Seconds longestPause(45);
/// After so many timers without a fault, everything must have arrived.
constexpr int timersToSettle = 200;

class Walk final {
public:
    explicit Walk(unsigned seed) : random_(seed) {
        qputenv("TMPDIR", temporary_.path().c_str());
        options_.sourcePath = (directory_ / "chat.db").string();
        for (const char* handle : handles) {
            chats_.push_back(
                database_.addChat({.guid = handle, .participants = {database_.addHandle(handle)}}));
        }
        bringAddressBookBack();
        with_.letTheUserSignIn();
        with_.urlSession.setClock(with_.clock);
        with_.logStore.setOnWrite([this](std::string_view line) { follow(line); });
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
            if (lockedSteps_ > 0 && --lockedSteps_ == 0) {
                unlock();
            }
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
    static constexpr std::size_t chatOfUnknown = 2;
    static constexpr std::array<const char*, 3> handles = {
        "+14155550134", "ada@example.com", "+14155550199"};
    /// The database is rebuilt only after so many rows.
    static constexpr std::int64_t leastProgressToRebuild = 600;

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
    }

    /// These lines come from the main thread.
    void follow(std::string_view line) {
        if (line.starts_with("going on without the known-contact list: The sign-in could not")) {
            // This run begins without the request of the known handles.
            runSession_ = sessionInForce();
        } else if (line.starts_with("starting from the beginning")) {
            rowLimit_.reset();
        } else if (line == "sign-in: succeeded") {
            latestSessions_[browserSession_.account] = browserSession_;
            ++signIns_;
        }
    }

    void takeStep() {
        if (!model_->auth().isSignedIn() && pick(3) == 0) {
            signIn();
            return;
        }
        switch (pick(32)) {
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
        case 12:
        case 13:
            prepareFault();
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
            rescan();
            break;
        case 14:
            lock();
            break;
        case 15:
            rebuildDatabase();
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
               with_.keychain.isReadWaiting() ||
               std::ranges::any_of(with_.clock.untilTimers(), isShort);
    }

    void addMessages() {
        const auto chat = static_cast<std::size_t>(pick(3));
        addMessages(chat, pick(5) == 0 ? 520 : 1 + pick(20));
    }

    /// Some messages belong to a second chat as well.
    void addMessages(std::size_t chat, int count) {
        if (rowLimit_ && rows_ + count > *rowLimit_) {
            return;
        }
        std::set<std::size_t> chats{chat};
        if (pick(4) == 0) {
            chats.insert(static_cast<std::size_t>(pick(3)));
        }
        note(fmt::format("{} messages in chats {}", count, fmt::join(chats, ", ")));
        database_.inOneTransaction([&] {
            for (int i = 0; i < count; ++i) {
                addMessage(chats);
            }
        });
    }

    void addMessage(const std::set<std::size_t>& chats) {
        const std::string guid = fmt::format("message-{}", ++messages_);
        std::vector<std::int64_t> rowIDs;
        for (const std::size_t chat : chats) {
            rowIDs.push_back(chats_.at(chat));
            (chat == chatOfUnknown ? ofUnknown_ : owed_).insert(inChat(guid, handles.at(chat)));
        }
        rows_ = database_.addMessage({.guid = guid, .text = "text", .chats = rowIDs});
    }

    static std::string inChat(std::string_view guid, std::string_view chat) {
        return fmt::format("{} in {}", guid, chat);
    }

    /// Messages gives away the old row ids again. The agent notices that while the highest one is
    /// lower than its progress, so a scan must come before there are more rows. A running scan
    /// would go on with its copy of the old database and change the progress.
    void rebuildDatabase() {
        const std::int64_t progress = WatermarkStore(with_.userDefaults).watermark();
        if (model_->collector().isScanning() || rowLimit_ || progress < leastProgressToRebuild) {
            passTime();
            return;
        }
        note("the database is rebuilt");
        database_.inOneTransaction([&] {
            database_.execute("DELETE FROM message");
            database_.execute("DELETE FROM chat_message_join");
            database_.execute("DELETE FROM sqlite_sequence WHERE name = 'message'");
        });
        owed_.clear();
        ofUnknown_.clear();
        rows_ = 0;
        rowLimit_ = progress - 1;
        addMessages(static_cast<std::size_t>(pick(3)), 1 + pick(20));
    }

    void rescan() {
        note("re-scan from the beginning");
        runTask(model_->rescanFromBeginning());
        rowLimit_.reset();
    }

    void lock() {
        if (lockedSteps_ == 0) {
            note("lock the keychain");
            with_.keychain.lock();
            lockedSteps_ = 1 + pick(6);
        }
    }

    void unlock() {
        note("unlock the keychain");
        lockedSteps_ = 0;
        with_.keychain.unlock();
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

    /// Does not wait for the profile.
    void signIn() {
        const AuthService& auth = model_->auth();
        if (auth.isSigningIn()) {
            passTime();
            return;
        }
        browserSession_ = {pick(2), ++sessions_};
        note(fmt::format("sign in as {}", browserSession_.account));
        const int before = signIns_;
        const QCoro::Task<> signingIn = model_->auth().signIn();
        if (!waitUntil(
                [this, &auth, before] { return signIns_ > before || !auth.isSigningIn(); })) {
            violate("the sign-in does not end");
        }
    }

    /// As another process of the same user would, for which the user has unlocked the keychain.
    void changeSessionElsewhere() {
        if (lockedSteps_ > 0) {
            unlock();
            processEvents();
        }
        if (flip()) {
            note("sign out elsewhere");
            with_.keychain.items.erase(sessionItem());
            return;
        }
        // The same account's session goes on, as after a refresh by that process.
        const int account = pick(2);
        const auto known = latestSessions_.find(account);
        const SignIn session = model_->auth().isSignedIn() && known != latestSessions_.end()
                                   ? known->second
                                   : newSession(account);
        note(fmt::format("sign in elsewhere as {}", session.account));
        storeSession(session);
    }

    void toggleAddressBook() {
        if (std::exchange(isAddressBookAway_, !isAddressBookAway_)) {
            note("address book back");
            bringAddressBookBack();
            return;
        }
        const tavrin::PlatformError error("Test", 1, "The address book is away.");
        switch (pick(3)) {
        case 0:
            note("address book away");
            with_.addressBook.readError = error;
            break;
        case 1:
            note("address book restricted");
            with_.addressBook.status = AddressBook::AuthorizationStatus::Restricted;
            break;
        default:
            note("one address book unreadable");
            with_.addressBook.bookError = error;
            with_.addressBook.cards.front().emailAddresses.clear();
            break;
        }
    }

    void bringAddressBookBack() {
        ContactCard card;
        card.phoneNumbers = {"+1 415 555 0134"};
        card.emailAddresses = {"ada@example.com"};
        with_.addressBook.cards = {card};
        with_.addressBook.readError.reset();
        with_.addressBook.bookError.reset();
        with_.addressBook.status = AddressBook::AuthorizationStatus::Authorized;
        isAddressBookAway_ = false;
    }

    /// Nothing that was not written before reaches the disk.
    void kill() {
        note("kill");
        with_.userDefaults.setFailsWrites(true);
        model_.reset();
        with_.userDefaults.setFailsWrites(false);
        runSession_.reset();
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

    enum class Fault {
        None,
        Busy,
        Refused,
        TooLarge,
        SessionEnded,
        NoConnection,
        ReplyLost,
        Silent
    };
    static constexpr int faultCount = 8;

    /// Of the next requests to a path.
    struct Faults {
        Fault fault = Fault::None;
        int requests = 0;
    };

    void prepareFault() {
        constexpr std::array<std::string_view, 7> paths = {
            FakeService::ingestPath,
            FakeService::ingestPath,
            FakeService::ingestPath,
            FakeService::digestPath,
            FakeService::profilePath,
            FakeService::diagnosticsPath,
            FakeService::refreshPath};
        const std::string_view path = paths.at(static_cast<std::size_t>(pick(paths.size())));
        const auto fault = static_cast<Fault>(pick(faultCount));
        faults_[path] = {fault, 1 + pick(5)};
        note(fmt::format(
            "fault {} for {} requests of {}",
            static_cast<int>(fault),
            faults_[path].requests,
            path));
    }

    Fault nextFault(std::string_view path) {
        const auto found = faults_.find(path);
        if (found == faults_.end()) {
            return Fault::None;
        }
        const Fault fault = found->second.fault;
        if (--found->second.requests == 0) {
            faults_.erase(found);
        }
        return fault;
    }

    /// The reply to a request with that fault, which is not `None`.
    static FakeURLSession::Answer faultyAnswer(Fault fault, std::string_view path) {
        const bool isIdentity = path == FakeService::refreshPath;
        switch (fault) {
        case Fault::Refused:
            return URLResponse{
                400,
                isIdentity ? R"({"error":{"message":"No."}})" : R"({"ok":false,"error":"No."})"};
        case Fault::TooLarge:
            return URLResponse{413, R"({"ok":false,"error":"It is too large."})"};
        case Fault::SessionEnded:
            return isIdentity
                       ? URLResponse{400, R"({"error":{"message":"INVALID_GRANT"}})"}
                       : URLResponse{
                             401,
                             R"({"ok":false,"error":"The session is over.","code":"session_expired"})"};
        case Fault::NoConnection:
        case Fault::ReplyLost:
            return URLResult(tavrin::urlError(tavrin::URLErrorCode::NetworkConnectionLost));
        case Fault::Silent:
            return std::nullopt;
        case Fault::None:
        case Fault::Busy:
            break;
        }
        return URLResponse{503, "Busy."};
    }

    FakeURLSession::Answer answer(const URLRequest& request) {
        constexpr std::array<std::string_view, 7> paths = {
            FakeService::ingestPath,
            FakeService::digestPath,
            FakeService::diagnosticsPath,
            FakeService::profilePath,
            FakeService::deviceTokenPath,
            FakeService::customTokenPath,
            FakeService::refreshPath};
        const std::string_view path = *std::ranges::find_if(
            paths, [&request](auto each) { return request.url.find(each) != std::string::npos; });
        if (path == FakeService::deviceTokenPath) {
            return success(R"({"customToken":"custom","uid":"uid"})");
        }
        if (path == FakeService::customTokenPath) {
            return tokens("idToken", "refreshToken", "expiresIn", browserSession_);
        }
        const Fault fault = nextFault(path);
        if (path == FakeService::refreshPath) {
            if (fault != Fault::None || isRefreshBroken_) {
                return faultyAnswer(fault, path);
            }
            const SignIn session = signInOf(request.body.value(), "refresh-").value();
            return tokens("id_token", "refresh_token", "expires_in", session);
        }
        const std::optional<SignIn> sender = senderOf(request);
        if (!sender) {
            violate("a request without a token: " + request.url);
            return URLResponse{401, ""};
        }
        checkSender(*sender, path);
        if (path == FakeService::ingestPath) {
            return answerUpload(request, sender->account, fault);
        }
        if (fault != Fault::None) {
            return faultyAnswer(fault, path);
        }
        if (path == FakeService::profilePath) {
            return success(
                fmt::format(R"({{"uid":"uid-{0}","email":"{0}@orvel.example"}})", sender->account));
        }
        if (path == FakeService::diagnosticsPath) {
            return success(R"({"received":1})");
        }
        return isDigestBroken_ ? URLResponse{503, "Busy."} : success(R"({"hints":["4155550134"]})");
    }

    URLResponse tokens(
        std::string_view idToken,
        std::string_view refreshToken,
        std::string_view expiry,
        const SignIn& session) {
        return {
            200,
            fmt::format(
                R"({{"{}":"{}","{}":"{}","{}":"600"}})",
                idToken,
                newToken("id-", session),
                refreshToken,
                newToken("refresh-", session),
                expiry)};
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

    /// The number of the sign-in that the agent uses.
    [[nodiscard]] std::optional<int> sessionInForce() const {
        if (const auto& email = model_->auth().accountEmail()) {
            const auto session = latestSessions_.find(std::stoi(*email));
            return session == latestSessions_.end() ? std::nullopt
                                                    : std::optional(session->second.number);
        }
        const auto stored = with_.keychain.items.find(sessionItem());
        const auto session = stored == with_.keychain.items.end()
                                 ? std::nullopt
                                 : signInOf(stored->second, "refresh-");
        return session ? std::optional(session->number) : std::nullopt;
    }

    /// The request of the known handles tells which sign-in a run begins with. It is remembered
    /// until the next run, beyond the end of the scan and of the sign-in.
    void checkSender(const SignIn& sender, std::string_view path) {
        if (!model_->auth().isSignedIn()) {
            violate(fmt::format("a request while no account is signed in: {}", path));
        }
        if (sender.number != latestSessions_.at(sender.account).number) {
            violate(fmt::format("a request of an earlier sign-in: {}", path));
        }
        const auto& email = model_->auth().accountEmail();
        if (email && email != fmt::format("{}@orvel.example", sender.account)) {
            violate(fmt::format(
                "a request for {} while {} is signed in: {}", sender.account, *email, path));
        }
        if (path == FakeService::profilePath) {
            return;
        }
        if (path == FakeService::digestPath || !runSession_) {
            runSession_ = sender.number;
        } else if (runSession_ != sender.number) {
            violate(fmt::format("a request of another sign-in than the run's: {}", path));
        }
    }

    FakeURLSession::Answer answerUpload(const URLRequest& request, int account, Fault fault) {
        ++batches_;
        const boost::json::value payload = boost::json::parse(request.body.value());
        const boost::json::array& records = payload.at("records").as_array();
        for (const boost::json::value& record : records) {
            checkRecord(record.as_object());
            if (fault == Fault::None || fault == Fault::ReplyLost) {
                received_[account].insert(
                    inChat(record.at("guid").as_string(), record.at("chatGUID").as_string()));
            }
        }
        if (fault != Fault::None) {
            return faultyAnswer(fault, FakeService::ingestPath);
        }
        return success(fmt::format(
            R"({{"acceptedWatermark":{},"accepted":{}}})",
            payload.at("watermark").as_int64(),
            records.size()));
    }

    void checkRecord(const boost::json::object& record) {
        const std::string guid(record.at("guid").as_string());
        if (model_->mode() == CollectionMode::MetadataOnly && record.contains("body")) {
            violate(guid + " was sent with its text");
        }
        if (model_->scope() == ThreadScope::KnownContactsOnly &&
            record.at("chatGUID").as_string() == handles.at(chatOfUnknown)) {
            violate(guid + " of an unknown contact was sent");
        }
        const WatermarkStore progress(with_.userDefaults);
        const std::int64_t row = record.at("rowID").as_int64();
        if (progress.isBackfillDone() ? row <= progress.watermark()
                                      : row >= progress.backfillCursor()) {
            violate(fmt::format("{} was sent though the saved progress covers it", guid));
        }
    }

    /// Ends all faults, waits until nothing is left to send, then looks for what is missing.
    void settle() {
        note("no more faults");
        faults_.clear();
        isDigestBroken_ = false;
        isRefreshBroken_ = false;
        bringAddressBookBack();
        unlock();
        if (flip()) {
            kill();
        }
        model_->collector().setPaused(false);
        runTask(model_->auth().restored());
        const bool wantsUnknown = flip();
        if (wantsUnknown) {
            note("all threads");
            model_->setScope(ThreadScope::AllThreads);
            // Also while a run with the earlier choice is being prepared.
            rescan();
        }
        if (!waitForQuietScans()) {
            return;
        }
        const auto stored = with_.keychain.items.find(sessionItem());
        if (stored == with_.keychain.items.end()) {
            violate("signed in without a stored session");
            return;
        }
        const int account = signInOf(stored->second, "refresh-").value().account;
        lookForMissing(owed_, account);
        if (wantsUnknown) {
            lookForMissing(ofUnknown_, account);
        }
    }

    /// Until two scans without an error have found nothing, and the history is done. A re-scan
    /// during the preparation of a scan ends that scan before it reads a row.
    bool waitForQuietScans() {
        std::set<QUuid> quietScans;
        for (int timer = 0; timer < timersToSettle && quietScans.size() < 2; ++timer) {
            if (!model_->auth().isSignedIn()) {
                signIn();
            }
            // The icon's timer may be there from the start, so let the replies arrive first.
            processEvents();
            if (!waitUntil([this] {
                    return (!model_->auth().isSigningIn() || with_.urlSession.inFlight() > 0) &&
                           with_.clock.untilNextTimer().has_value();
                })) {
                violate("the loop has stopped");
                return false;
            }
            const auto& history = model_->collector().history();
            if (!history.empty() && !model_->collector().isScanning()) {
                const auto& scan = history.front();
                const bool isHistoryDone = WatermarkStore(with_.userDefaults).isBackfillDone();
                if (scan.error || scan.scanned > 0 || !isHistoryDone) {
                    quietScans.clear();
                } else {
                    quietScans.insert(scan.id);
                }
            }
            with_.clock.advance(with_.clock.untilNextTimer().value());
        }
        if (quietScans.size() < 2) {
            violate("there is always something left to send");
            return false;
        }
        return true;
    }

    void lookForMissing(const std::set<std::string>& expected, int account) {
        const std::set<std::string>& received = received_[account];
        const auto missing = std::ranges::find_if_not(
            expected, [&received](const auto& each) { return received.contains(each); });
        if (missing != expected.end()) {
            violate(fmt::format("{} never reached account {}", *missing, account));
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
    /// The highest row id.
    std::int64_t rows_ = 0;
    /// No row id may be higher, until a scan has noticed that the database was rebuilt.
    std::optional<std::int64_t> rowLimit_;
    /// The messages in their chats, as `inChat`. These are in scope with every choice.
    std::set<std::string> owed_;
    std::set<std::string> ofUnknown_;
    /// By account.
    std::map<int, std::set<std::string>> received_;
    /// By path.
    std::map<std::string_view, Faults> faults_;
    bool isAddressBookAway_ = false;
    /// The keychain is unlocked before so many further steps. 0 if it is not locked.
    int lockedSteps_ = 0;
    bool isDigestBroken_ = false;
    bool isRefreshBroken_ = false;
    SignIn browserSession_;
    int sessions_ = 0;
    /// In the browser.
    int signIns_ = 0;
    /// By account.
    std::map<int, SignIn> latestSessions_;
    /// The number of the sign-in that the last run began with.
    std::optional<int> runSession_;
    int tokens_ = 0;
    std::vector<std::string> story_;
    std::size_t notedLines_ = 0;
    std::vector<std::string> violations_;
    TestPlatform with_;
    CollectorService::Options options_;
    std::unique_ptr<AppModel> model_;
};

} // namespace

TEST(RandomWalkTest, NoRequestViolatesAnInvariant) {
    int steps = 0;
    int batches = 0;
    runCampaign(walksInTest, [&](unsigned seed) {
        Walk walk(seed);
        walk.run();
        steps += walk.steps();
        batches += walk.batches();
        if (!walk.violations().empty()) {
            std::cout << fmt::format(
                             "walk {}, steps and log:\n  {}", seed, fmt::join(walk.story(), "\n  "))
                      << std::endl;
        }
        return CampaignResult{1, walk.violations()};
    });
    std::cout << steps << " steps, " << batches << " batches" << std::endl;
}

} // namespace orvel::test
