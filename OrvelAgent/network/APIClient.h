// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/network/APIError.h"
#include "OrvelAgent/network/Envelope.h"
#include "OrvelAgent/network/JSONCoding.h"
#include "core/CancellationToken.h"
#include "core/Date.h"
#include "core/Secret.h"
#include "platform/URLSession.h"

#include <QCoroTask>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace orvel {

class Configuration;

/// The JSON client of our own service: fixed headers, a bearer token, one envelope, one error type.
/// It knows no endpoint.
///
/// A value, copied freely; several sends may be in flight at once. Encoding and decoding happen on
/// the worker. The session and the worker are borrowed and must outlive every send. Main thread.
class APIClient final {
public:
    /// Yields the bearer token of one request, or nothing for a request without one.
    using TokenProvider = std::function<QCoro::Task<std::optional<tavrin::Secret>>()>;
    using SessionExpiredHandler = std::function<QCoro::Task<>()>;

    /// `baseURL` is scheme and host, with no trailing slash; the token goes nowhere else.
    APIClient(
        URLSession& session,
        Worker& worker,
        const Configuration& configuration,
        std::string baseURL,
        TokenProvider tokenProvider,
        tavrin::Seconds requestTimeout,
        SessionExpiredHandler onSessionExpired = {});

    /// Sends one request, once, and gives the payload of its reply.
    ///
    /// Throws `APIError` for every reply that is not a success, after awaiting the session-expired
    /// handler if the reply says so; the session's `tavrin::URLError` when there is no reply;
    /// `tavrin::TaskCancelled` when cancelled; what the body's encoding throws, before anything is
    /// sent. A base URL and path that make no URL end the process: a mistake in the program.
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

    /// On a copy of the client, which lives as long as the request.
    template <typename Reply, typename Body>
    static QCoro::Task<Reply> sendFrom(
        APIClient client,
        std::string path,
        std::string method,
        std::shared_ptr<const Body> body,
        tavrin::CancellationToken cancellation) {
        URLRequest request =
            co_await client.makeRequest(std::move(path), std::move(method), cancellation);
        if (body) {
            auto encode = [encoder = client.encoder_, body = std::move(body)] {
                return encoder->encode(*body);
            };
            request.body = co_await client.worker_->run(std::move(encode));
        }
        URLResponse response =
            co_await client.exchange(std::move(request), std::move(cancellation));
        // A secret: some replies carry tokens.
        auto decode = [status = response.status, body = tavrin::Secret(std::move(response.body))] {
            return outcomeOf<Reply>(status, body.text());
        };
        std::variant<Reply, Failure> outcome = co_await client.worker_->run(std::move(decode));
        if (auto* failure = std::get_if<Failure>(&outcome)) {
            if (failure->sessionExpired && client.onSessionExpired_) {
                co_await client.onSessionExpired_();
            }
            throw APIError(failure->error);
        }
        co_return std::get<Reply>(std::move(outcome));
    }

    template <typename Reply>
    static std::variant<Reply, Failure> outcomeOf(int status, const std::string& body) {
        std::optional<Envelope<Reply>> envelope = decodeEnvelope<Reply>(body);
        const bool isSuccess = status >= 200 && status <= 299;
        if (isSuccess && envelope && envelope->ok) {
            if (envelope->data) {
                return *std::move(envelope->data);
            }
            return Failure{APIError(status, "Response had no data."), false};
        }
        if (!envelope && isSuccess && HoldsSecrets<Reply>) {
            // Not understood, and what would be shown of it may be the secret.
            return Failure{APIError(status, "Response had no data."), false};
        }
        if (!envelope) {
            return failureOf(status, body, std::nullopt, std::nullopt);
        }
        return failureOf(status, body, std::move(envelope->error), std::move(envelope->code));
    }

    static Failure failureOf(
        int status,
        const std::string& body,
        std::optional<std::string> error,
        std::optional<std::string> code);

    QCoro::Task<URLRequest>
    makeRequest(std::string path, std::string method, tavrin::CancellationToken cancellation) const;
    QCoro::Task<URLResponse>
    exchange(URLRequest request, tavrin::CancellationToken cancellation) const;

    URLSession* session_;
    Worker* worker_;
    std::string userAgent_;
    std::string baseURL_;
    TokenProvider tokenProvider_;
    tavrin::Seconds requestTimeout_;
    SessionExpiredHandler onSessionExpired_;
    /// Used on the worker only; shared by the copies of one client.
    std::shared_ptr<JSONEncoder> encoder_;
};

} // namespace orvel
