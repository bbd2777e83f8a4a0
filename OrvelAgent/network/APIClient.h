// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/network/APIError.h"
#include "OrvelAgent/network/Envelope.h"
#include "OrvelAgent/network/JSONCoding.h"
#include "OrvelAgent/network/RequestEcho.h"
#include "OrvelAgent/network/URLLoading.h"
#include "core/CancellationToken.h"
#include "core/Date.h"
#include "core/Secret.h"
#include "platform/URLSession.h"

#include <QCoroTask>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace orvel {

class Configuration;
struct AccountSession;

/// The JSON client of our own service. Adds the headers and the bearer token, and unwraps the reply
/// envelope.
///
/// Copyable. Several requests may run at once. Encodes and decodes on the worker. Borrows the
/// session and the worker, which must outlive every request. Main thread.
class APIClient final {
public:
    /// Returns the bearer token of one request, or no value for a request without a token. May
    /// throw.
    using TokenProvider = std::function<QCoro::Task<std::optional<tavrin::Secret>>()>;
    using SessionExpiredHandler = std::function<QCoro::Task<>()>;

    /// `baseURL` is scheme and host, without a trailing slash. The token is sent to no other host.
    /// An empty token provider provides no token.
    APIClient(
        URLSession& session,
        Worker& worker,
        const Configuration& configuration,
        std::string baseURL,
        TokenProvider tokenProvider,
        tavrin::Seconds requestTimeout,
        SessionExpiredHandler onSessionExpired = {});

    /// A copy whose requests carry the tokens of a session. A request without a token is not sent.
    [[nodiscard]] APIClient authorizedBy(const AccountSession& session) const;

    [[nodiscard]] const std::string& baseURL() const { return baseURL_; }

    /// Sends one request, once, and returns the payload of the reply.
    ///
    /// Throws `APIError` for every reply that is not a success, `tavrin::URLError` if there is no
    /// reply, `TokenUnavailable` if a required token is missing, `tavrin::TaskCancelled` if
    /// cancelled, and the errors of the token provider and of the body's encoding. If the session
    /// has expired, awaits the handler first. An invalid URL is a programming error and ends the
    /// process.
    template <typename Reply, typename Body = Empty>
    QCoro::Task<Reply> send(
        std::string path,
        std::string method,
        std::shared_ptr<const Body> body,
        tavrin::CancellationToken cancellation = {}) const {
        return sendFrom<Reply, Body>(
            *this, std::move(path), std::move(method), std::move(body), std::move(cancellation));
    }

private:
    struct Failure {
        APIError error;
        bool sessionExpired;
    };

    /// Takes the values of the request out of a text.
    using Redact = std::function<std::string(std::string_view)>;

    /// Takes a copy of the client, which lives as long as the request.
    template <typename Reply, typename Body>
    static QCoro::Task<Reply> sendFrom(
        APIClient client,
        std::string path,
        std::string method,
        std::shared_ptr<const Body> body,
        tavrin::CancellationToken cancellation) {
        URLRequest request =
            co_await client.makeRequest(std::move(path), std::move(method), cancellation);
        const tavrin::Secret token = bearerTokenOf(request);
        if (body) {
            auto encode = [encoder = client.encoder_, body] {
                return encoder->encode(*body);
            };
            request.body = co_await client.worker_->run(std::move(encode));
        }
        URLResponse response = co_await load(client.session_, std::move(request), cancellation);
        // A secret, because some replies contain tokens.
        auto decode = [status = response.status,
                       reply = tavrin::Secret(std::move(response.body)),
                       token,
                       body = std::move(body)] {
            return outcomeOf<Reply>(status, reply.text(), [&token, &body](std::string_view text) {
                return redacted(text, token, body.get());
            });
        };
        std::variant<Reply, Failure> outcome = co_await client.worker_->run(std::move(decode));
        if (auto* failure = std::get_if<Failure>(&outcome)) {
            if (failure->sessionExpired && client.onSessionExpired_) {
                co_await expireSession(client.onSessionExpired_, cancellation);
            }
            throw APIError(failure->error);
        }
        co_return std::get<Reply>(std::move(outcome));
    }

    /// The text without the values of the request, as `RequestEcho::takenOutOf`.
    template <typename Body>
    static std::string
    redacted(std::string_view text, const tavrin::Secret& token, const Body* body) {
        if (text.empty()) {
            return {};
        }
        RequestEcho echo;
        echo.addSecret(token.text());
        if constexpr (HoldsSecrets<Body>) {
            if (body != nullptr) {
                echo.addSecretStrings(boost::json::value_from(*body, wipingStorage()));
            }
        } else if (body != nullptr) {
            echo.addStrings(boost::json::value_from(*body), publicKeysOf<Body>());
        }
        return echo.takenOutOf(text);
    }

    template <typename Reply>
    static std::variant<Reply, Failure>
    outcomeOf(int status, const std::string& body, const Redact& redact) {
        std::optional<Envelope<Reply>> envelope = decodeEnvelope<Reply>(body);
        const bool isSuccess = status >= 200 && status <= 299;
        if (isSuccess && envelope && envelope->ok) {
            if (envelope->data) {
                return *std::move(envelope->data);
            }
            return Failure{APIError(status, "Response had no data."), false};
        }
        if (!envelope && isSuccess && HoldsSecrets<Reply>) {
            // Do not show the reply: it may contain a secret.
            return Failure{APIError(status, "Response had no data."), false};
        }
        constexpr bool mayHoldSecrets = HoldsSecrets<Reply>;
        if (!envelope) {
            return failureOf(status, body, std::nullopt, std::nullopt, mayHoldSecrets, redact);
        }
        return failureOf(status, body, envelope->error, envelope->code, mayHoldSecrets, redact);
    }

    /// Decides which text of the reply is shown. A reply with secrets is not shown as JSON, and no
    /// value of the request is shown. Without a text, the user sees the status.
    static Failure failureOf(
        int status,
        std::string_view body,
        const std::optional<std::string>& error,
        const std::optional<std::string>& code,
        bool mayHoldSecrets,
        const Redact& redact);

    /// Empty if the request has no token.
    static tavrin::Secret bearerTokenOf(const URLRequest& request);

    QCoro::Task<URLRequest>
    makeRequest(std::string path, std::string method, tavrin::CancellationToken cancellation) const;
    /// The handler may wait for the keychain. If the request is cancelled meanwhile, returns at
    /// once.
    static QCoro::Task<>
    expireSession(SessionExpiredHandler handler, tavrin::CancellationToken cancellation);

    URLSession* session_;
    Worker* worker_;
    std::string userAgent_;
    std::string baseURL_;
    TokenProvider tokenProvider_;
    tavrin::Seconds requestTimeout_;
    SessionExpiredHandler onSessionExpired_;
    bool requiresToken_ = false;
    /// Used on the worker only. Copies of a client share it.
    std::shared_ptr<JSONEncoder> encoder_;
};

} // namespace orvel
