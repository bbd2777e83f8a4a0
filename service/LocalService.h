// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoopbackPeer.h"
#include "service/accounts/Account.h"
#include "service/accounts/AuthorizationCodes.h"
#include "service/accounts/BearerTokens.h"
#include "service/accounts/IdentityProvider.h"
#include "service/accounts/PageAccess.h"
#include "service/endpoints/FaultScript.h"
#include "service/endpoints/Router.h"
#include "service/http/CertificateAuthority.h"
#include "service/http/HTTPSServer.h"
#include "service/http/TrafficCapture.h"
#include "service/records/KnownHandles.h"
#include "service/records/RecordStore.h"

#include <boost/json/fwd.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

/// The service contract over HTTPS on 127.0.0.1, with one SQLite file as its store.
///
/// For the first run, for self-hosting, and for tests, which can script faults and count requests.
/// All functions may be called from any thread, except that `start()` and `stop()` must not
/// overlap.
class LocalService final {
public:
    struct Options {
        std::filesystem::path store;
        std::filesystem::path certificates;
        /// 0 picks any free port.
        std::uint16_t port = 0;
        /// Accepted besides the ID tokens of sessions.
        std::vector<std::string> tokens;
        /// Phone numbers and e-mail addresses, in any spelling.
        std::vector<std::string> knownHandles;
        /// The accounts that can sign in. Their uids must differ.
        std::vector<Account> accounts = sampleAccounts();
        /// The API key that the identity provider's endpoints require. If empty, any key will do.
        std::string apiKey;
        std::chrono::seconds idTokenLifetime = std::chrono::hours(1);
        /// The clock for the expiry of codes and tokens. Called from any thread.
        Now now = std::chrono::system_clock::now;
        /// Adds the endpoints below "/control", which script faults and return counts.
        bool hasControl = false;
        /// A folder whose files are served below /updates/. The feed is its "appcast.xml".
        std::optional<std::filesystem::path> updates;
        /// Base64 of the Ed25519 public key of the updates. If set, `writeBundle()` makes the agent
        /// look for updates here.
        std::string updatePublicKey;
        /// Every request to the agent's endpoints is appended here, without its token, its query
        /// and any body that holds secrets.
        std::optional<std::filesystem::path> capture;
        /// Tells who may see the pages. Where it fails, the cookie alone decides.
        std::function<std::optional<uid_t>(std::uint16_t peerPort, std::uint16_t ownPort)>
            accountOf = loopbackPeer;
        /// Called with one line per request and per failure, from any thread but never
        /// concurrently.
        std::function<void(std::string_view)> log;
    };

    /// Opens the store and the certificates, or creates them. Throws `ServiceError`.
    explicit LocalService(Options options);
    ~LocalService() { stop(); }
    LocalService(const LocalService&) = delete;
    LocalService& operator=(const LocalService&) = delete;

    /// Returns once it listens. A restart uses the same port as before. Throws `ServiceError`.
    void start();
    /// Ends every delay and returns when the last reply has been sent.
    void stop();

    /// Applies the fault to the next `times` requests to the agent's endpoints. Faults take effect
    /// in the order in which they were scripted.
    void script(Fault fault, std::size_t times = 1) { faults_.add(std::move(fault), times); }
    void clearFaults() { faults_.clear(); }

    /// Requests with the token are answered with an expired session from now on.
    void expireToken(std::string_view token) { tokens_.expire(token); }

    /// A new link that lets one browser see the pages. Call it after the first start.
    [[nodiscard]] std::string mintPageLink();
    /// The Cookie header of a browser that has opened such a link.
    [[nodiscard]] std::string openPages();

    /// The code that the sign-in page hands over for the account.
    [[nodiscard]] std::string mintCode(std::string challenge, std::string uid) {
        return codes_.mint(std::move(challenge), std::move(uid));
    }
    /// Starts a session without a browser. Throws `IdentityRefusal` if the account cannot sign in.
    [[nodiscard]] IdentityProvider::Tokens signIn(const std::string& uid) {
        return identities_.startSession(uid);
    }

    /// Ends the sessions of the account, or all of them if `uid` is empty. Their refresh tokens are
    /// refused with `message`, an error code of the identity provider. Their ID tokens stay valid
    /// unless `endsIDTokens` is set; then they are answered with an expired session. Returns the
    /// number of sessions.
    std::size_t revokeSessions(
        const std::string& uid = {},
        const std::string& message = "TOKEN_EXPIRED",
        bool endsIDTokens = false) {
        return identities_.revokeSessions(uid, message, endsIDTokens);
    }
    /// Lets all ID tokens expire. Returns their number.
    std::size_t expireIDTokens() { return identities_.expireIDTokens(); }
    /// A disabled account can neither sign in nor refresh. Its sessions are kept.
    void setUserDisabled(const std::string& uid, bool isDisabled = true) {
        identities_.setUserDisabled(uid, isDisabled);
    }

    /// Writes a folder for `ORVEL_AGENT_BUNDLE`, so that a program without a bundle of its own
    /// talks to this service. Call it after the first start. Throws `ServiceError`.
    void writeBundle(const std::filesystem::path& folder) const;

    /// With option `port` 0, this is 0 until the first start.
    [[nodiscard]] std::uint16_t port() const { return port_; }
    /// Scheme, address and port, without a trailing slash.
    [[nodiscard]] std::string url() const { return "https://127.0.0.1:" + std::to_string(port()); }
    /// The PEM file of the certificate that a client must trust.
    [[nodiscard]] const std::filesystem::path& caFile() const {
        return authority_.certificateFile();
    }

    /// Requests to the agent's endpoints, including those that met a fault.
    [[nodiscard]] std::size_t requestCount() const;
    /// Requests to one path of the agent's endpoints.
    [[nodiscard]] std::size_t requestCount(std::string_view path) const;
    /// Waits for `count` requests in total. Returns whether they arrived within `limit`.
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

    /// The number of stored records, without duplicates.
    [[nodiscard]] std::size_t storedCount() const {
        return static_cast<std::size_t>(store_.totals().records);
    }
    [[nodiscard]] const RecordStore& store() const { return store_; }

private:
    [[nodiscard]] Reply answer(const Request& request);
    [[nodiscard]] Reply answerContract(const Request& request);
    void logReply(const Request& request, const Router& router, const Reply& reply);
    void count(const Request& request);
    void wait(std::chrono::milliseconds delay);
    [[nodiscard]] boost::json::object statistics() const;

    const Options options_;
    std::atomic<std::uint16_t> port_;
    FaultScript faults_;
    RecordStore store_;
    IdentityProvider identities_;
    AuthorizationCodes codes_;
    BearerTokens tokens_;
    PageAccess pages_;
    const CertificateAuthority authority_;
    const KnownHandles knownHandles_;
    /// The agent's endpoints: counted, captured and subject to faults.
    Router contract_;
    /// The endpoints for people and test programs.
    Router operator_;
    std::optional<TrafficCapture> capture_;
    std::mutex logMutex_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool isStopping_ = false;
    std::size_t requestCount_ = 0;
    std::map<std::string, std::size_t, std::less<>> pathCounts_;

    /// Last, so that it stops before the members that its threads use are destroyed.
    HTTPSServer server_;
};

} // namespace orvel::service
