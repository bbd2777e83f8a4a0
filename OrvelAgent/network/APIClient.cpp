// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/APIClient.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/network/AccountSession.h"
#include "OrvelAgent/network/TokenUnavailable.h"
#include "core/SessionPolicy.h"
#include "core/Text.h"

#include <QString>
#include <QUrl>

namespace orvel {

namespace {

constexpr std::string_view bearer = "Bearer ";

/// Whether the reply is JSON rather than a page or a sentence.
bool isJSON(std::string_view body) {
    const std::size_t start = body.find_first_not_of(" \t\r\n");
    return start != std::string_view::npos && (body[start] == '{' || body[start] == '[');
}

using Token = std::optional<tavrin::Secret>;

/// Catches all exceptions: after a cancelled request, no coroutine awaits this one.
QCoro::Task<> deliver(APIClient::TokenProvider provider, Deferred<Token> token) {
    Token value;
    std::exception_ptr failure;
    try {
        value = co_await provider();
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        token.reject(failure);
    } else {
        token.resolve(std::move(value));
    }
}

/// The provider may wait for the keychain or the network. If the request is cancelled meanwhile, it
/// ends at once.
QCoro::Task<Token>
tokenOf(APIClient::TokenProvider provider, tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    if (!provider) {
        co_return std::nullopt;
    }
    const Deferred<Token> token;
    const QCoro::Task<> delivery = deliver(std::move(provider), token);
    co_await token.settled(std::move(cancellation));
    co_return token.take();
}

QCoro::Task<> finish(APIClient::SessionExpiredHandler handler, Deferred<void> end) {
    try {
        co_await handler();
    } catch (const std::exception&) {
        // The reply's error is reported.
    }
    end.resolve();
}

} // namespace

APIClient::APIClient(
    URLSession& session,
    Worker& worker,
    const Configuration& configuration,
    std::string baseURL,
    TokenProvider tokenProvider,
    tavrin::Seconds requestTimeout,
    SessionExpiredHandler onSessionExpired)
    : session_(&session),
      worker_(&worker),
      userAgent_(configuration.displayName() + "-mac/" + configuration.shortVersion()),
      baseURL_(std::move(baseURL)),
      tokenProvider_(std::move(tokenProvider)),
      requestTimeout_(requestTimeout),
      onSessionExpired_(std::move(onSessionExpired)),
      encoder_(std::make_shared<JSONEncoder>()) {}

APIClient APIClient::authorizedBy(const AccountSession& session) const {
    APIClient client = *this;
    client.tokenProvider_ = session.tokenProvider;
    client.onSessionExpired_ = session.onSessionExpired;
    client.requiresToken_ = true;
    return client;
}

QCoro::Task<URLRequest> APIClient::makeRequest(
    std::string path, std::string method, tavrin::CancellationToken cancellation) const {
    URLRequest request;
    request.url = baseURL_ + path;
    if (!QUrl(QString::fromStdString(request.url), QUrl::StrictMode).isValid()) {
        qFatal("Not a URL: %s", request.url.c_str());
    }
    request.method = std::move(method);
    request.timeout = requestTimeout_;
    request.headers.emplace_back("Content-Type", "application/json");
    request.headers.emplace_back("User-Agent", userAgent_);
    request.headers.emplace_back(
        tavrin::SessionPolicy::headerName, tavrin::SessionPolicy::headerValue);
    const std::optional<tavrin::Secret> token = co_await tokenOf(tokenProvider_, cancellation);
    if (!token && requiresToken_) {
        throw TokenUnavailable("You are not signed in.");
    }
    if (token) {
        // Reserve the final size: growing would leave copies of the token in memory.
        std::string authorization;
        authorization.reserve(bearer.size() + token->text().size());
        authorization += bearer;
        authorization += token->text();
        request.headers.emplace_back("Authorization", std::move(authorization));
    }
    co_return request;
}

QCoro::Task<>
APIClient::expireSession(SessionExpiredHandler handler, tavrin::CancellationToken cancellation) {
    const Deferred<void> end;
    const QCoro::Task<> handling = finish(std::move(handler), end);
    try {
        co_await end.settled(std::move(cancellation));
    } catch (const tavrin::TaskCancelled&) {
        // The request has ended anyway.
    }
}

tavrin::Secret APIClient::bearerTokenOf(const URLRequest& request) {
    for (const auto& [name, value] : request.headers) {
        if (name == "Authorization") {
            return tavrin::Secret(value.substr(bearer.size()));
        }
    }
    return {};
}

APIClient::Failure APIClient::failureOf(
    int status,
    std::string_view body,
    const std::optional<std::string>& error,
    const std::optional<std::string>& code,
    bool mayHoldSecrets,
    const Redact& redact) {
    std::string_view text = tavrin::withoutByteOrderMark(body);
    if (error) {
        text = *error;
    } else if (!tavrin::isValidUTF8(text) || (mayHoldSecrets && isJSON(text))) {
        text = {};
    }
    return {
        APIError(status, tavrin::shownText(redact(text))),
        tavrin::SessionPolicy::isSessionExpired(status, code)};
}

} // namespace orvel
