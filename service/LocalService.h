// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/accounts/Account.h"
#include "service/accounts/IdentityProvider.h"
#include "service/endpoints/FaultScript.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

class RecordStore;

/// The service contract over HTTPS on 127.0.0.1, with one SQLite file as its store.
///
/// For the first run, for self-hosting, and for tests, which can script how the next replies fail
/// and count what arrived. All functions may be called from any thread, except that `start()` and
/// `stop()` must not overlap.
class LocalService final {
public:
    struct Options {
        std::filesystem::path store;
        std::filesystem::path certificates;
        /// 0 is any free port.
        std::uint16_t port = 0;
        /// Accepted besides the ID tokens of sessions. Without any, every bearer token is accepted
        /// but for ID tokens that have ended.
        std::vector<std::string> tokens;
        /// Phone numbers and e-mail addresses, in any spelling.
        std::vector<std::string> knownHandles;
        /// Who can sign in; their uids differ.
        std::vector<Account> accounts = sampleAccounts();
        /// What the identity provider's endpoints want to see; empty takes every key.
        std::string apiKey;
        std::chrono::seconds idTokenLifetime = std::chrono::hours(1);
        /// Decides when codes and tokens end. Called from any thread.
        Now now = std::chrono::system_clock::now;
        /// Whether faults can be scripted and counts be read over HTTPS, too.
        bool hasControl = false;
        /// A folder of files to serve below /updates/, the feed of them being "appcast.xml".
        std::optional<std::filesystem::path> updates;
        /// Base64 of the Ed25519 key that the updates are signed with. With one, the agent of the
        /// bundle looks here for updates.
        std::string updatePublicKey;
        /// Where to append every request of the contract, without its token and query, and without
        /// its body where that holds secrets.
        std::optional<std::filesystem::path> capture;
        /// Gets one line per request, from any thread but never twice at once.
        std::function<void(std::string_view)> log;
    };

    /// Opens or makes store and certificates. Throws `ServiceError`.
    explicit LocalService(Options options);
    /// Stops.
    ~LocalService();
    LocalService(const LocalService&) = delete;
    LocalService& operator=(const LocalService&) = delete;

    /// Listens when it returns; after a stop, on the same port as before. Throws `ServiceError`.
    void start();
    /// Ends every delay and returns when the last reply has gone out.
    void stop();

    /// Spoils the replies to the next requests of the contract. Faults take effect in the order in
    /// which they were scripted.
    void script(Fault fault, std::size_t times = 1);
    void clearFaults();

    /// From now on requests with the token are answered as those of an expired session.
    void expireToken(std::string token);

    /// The code that the sign-in page hands over when the account is chosen.
    [[nodiscard]] std::string mintCode(std::string challenge, std::string uid);
    /// A new session without a browser. Throws `IdentityRefusal` unless the account can sign in.
    [[nodiscard]] IdentityProvider::Tokens signIn(const std::string& uid);

    /// Ends the sessions of the account, or all of them when `uid` is empty: from now on their
    /// refresh tokens are refused with `message`, as the identity provider words it. Their ID
    /// tokens stay valid, unless they are ended, too; then they are answered as those of an expired
    /// session. Gives the number of sessions.
    std::size_t revokeSessions(
        const std::string& uid = {},
        const std::string& message = "TOKEN_EXPIRED",
        bool endsIDTokens = false);
    /// All ID tokens have reached their end. Gives their number.
    std::size_t expireIDTokens();
    /// While the account is disabled it can neither sign in nor refresh; sessions stay.
    void setUserDisabled(const std::string& uid, bool isDisabled = true);

    /// Makes the folder a bundle for `ORVEL_AGENT_BUNDLE`, whose agent talks to this service. Only
    /// after the first start. Throws `ServiceError`.
    void writeBundle(const std::filesystem::path& folder) const;

    /// When any free port is wanted, 0 until the first start.
    [[nodiscard]] std::uint16_t port() const;
    /// Scheme, address and port, without a slash at the end.
    [[nodiscard]] std::string url() const;
    /// The certificate a client must trust, in PEM.
    [[nodiscard]] std::filesystem::path caFile() const;

    /// The requests that arrived, spoilt ones included; the page and the control do not count.
    [[nodiscard]] std::size_t requestCount() const;
    /// Of these, the ones to one path of the contract.
    [[nodiscard]] std::size_t requestCount(std::string_view path) const;
    /// Whether that many requests have arrived before the limit passed.
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

    /// The records kept, each once.
    [[nodiscard]] std::size_t storedCount() const;
    [[nodiscard]] const RecordStore& store() const;

private:
    class Implementation;

    std::unique_ptr<Implementation> implementation_;
};

} // namespace orvel::service
