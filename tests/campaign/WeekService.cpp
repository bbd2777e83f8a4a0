// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/WeekService.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <sstream>
#include <utility>

namespace orvel::test {

namespace {

constexpr std::string_view guidPrefix = "message-";
constexpr double tokenLifetime = 3600;
/// Reserved at once, so that the test itself needs no more memory from week to week.
constexpr std::size_t maximalMessages = 20'000;
constexpr std::size_t maximalFindings = 20;

bool isTo(const URLRequest& request, std::string_view path) {
    return request.url.find(path) != std::string::npos;
}

URLResponse success(const std::string& data) {
    return {200, fmt::format(R"({{"ok":true,"data":{}}})", data)};
}

URLResult failure(tavrin::URLErrorCode code) {
    return urlError(code);
}

} // namespace

WeekService::WeekService(TestPlatform& with, std::mt19937& random, tavrin::ThreadScope scope)
    : with_(with), random_(random), scope_(scope) {
    messages_.reserve(maximalMessages);
    with_.letTheUserSignIn();
    with_.urlSession.setClock(with_.clock);
    with_.urlSession.setHandler([this](const URLRequest& request) { return answer(request); });
    with_.storeSession();
    auto& session = with_.keychain.items.begin()->second;
    session.replace(session.find("refresh-0"), 9, "refresh-1");
}

std::string WeekService::addMessage(Chat chat) {
    messages_.push_back({chat, false, std::nullopt});
    return fmt::format("{}{}", guidPrefix, messages_.size() - 1);
}

void WeekService::beginContactsGap() {
    if (!std::exchange(isContactsGapOpen_, true)) {
        contactsGap_ = with_.clock.uptime();
    }
}

std::vector<std::string> WeekService::takeFindings() {
    return std::exchange(findings_, {});
}

std::optional<std::string> WeekService::missing() const {
    const auto isMissing = [this](const Message& message) {
        return isInScope(message.chat) && !message.isStored;
    };
    const auto count = std::ranges::count_if(messages_, isMissing);
    if (count == 0) {
        return std::nullopt;
    }
    const auto first = std::ranges::find_if(messages_, isMissing) - messages_.begin();
    return fmt::format("{} messages never arrived, such as {}{}", count, guidPrefix, first);
}

FakeURLSession::Answer WeekService::answer(const URLRequest& request) {
    count(request);
    switch (network_) {
    case Network::Online:
        break;
    case Network::Offline:
        return failure(
            pick(2) == 0 ? tavrin::URLErrorCode::NotConnectedToInternet
                         : tavrin::URLErrorCode::CannotFindHost);
    case Network::CaptivePortal:
        return answerPortal();
    case Network::Overloaded:
        return URLResponse{503, "Busy."};
    case Network::Down:
        return failure(tavrin::URLErrorCode::CannotConnectToHost);
    case Network::Silent:
        return std::nullopt;
    case Network::RepliesLost:
        if (isTo(request, FakeService::ingestPath)) {
            ++lostReplies_;
        }
        static_cast<void>(trueAnswer(request));
        return failure(tavrin::URLErrorCode::NetworkConnectionLost);
    }
    return trueAnswer(request);
}

/// A portal answers in place of every server until the user has accepted its terms.
FakeURLSession::Answer WeekService::answerPortal() {
    const std::string page = "<!DOCTYPE html><html><body>Welcome to our café.</body></html>";
    switch (pick(4)) {
    case 0:
        return URLResponse{200, page};
    case 1:
        return URLResponse{302, page, "http://portal.test.example/"};
    case 2:
        return URLResponse{511, page};
    default:
        return failure(tavrin::URLErrorCode::ServerCertificateUntrusted);
    }
}

FakeURLSession::Answer WeekService::trueAnswer(const URLRequest& request) {
    if (isTo(request, FakeService::deviceTokenPath)) {
        return success(R"({"customToken":"custom","uid":"uid-1"})");
    }
    if (isTo(request, FakeService::customTokenPath)) {
        ++session_;
        hasSessionEnded_ = false;
        return tokens("idToken", "refreshToken", "expiresIn");
    }
    if (isTo(request, FakeService::refreshPath)) {
        const bool isCurrent =
            request.body.value_or("").ends_with(fmt::format("refresh-{}", session_));
        if (!isCurrent) {
            find("a refresh of another session");
        }
        if (!isCurrent || hasSessionEnded_) {
            return URLResponse{400, R"({"error":{"message":"INVALID_GRANT"}})"};
        }
        return tokens("id_token", "refresh_token", "expires_in");
    }
    return answerAuthorized(request);
}

FakeURLSession::Answer WeekService::answerAuthorized(const URLRequest& request) {
    const std::optional<Token> token = tokenOf(request);
    if (!token) {
        find("a request without a token: " + request.url);
        return URLResponse{401, ""};
    }
    if (token->expiry < with_.clock.uptime().count()) {
        find("a request with an expired token: " + request.url);
    }
    if (token->session != session_) {
        find("a request of an earlier session: " + request.url);
    }
    if (token->session != session_ || hasSessionEnded_) {
        return URLResponse{
            401, R"({"ok":false,"error":"The session is over.","code":"session_expired"})"};
    }
    if (isTo(request, FakeService::ingestPath)) {
        return answerUpload(request);
    }
    if (isTo(request, FakeService::profilePath)) {
        return success(R"({"uid":"uid-1","email":"one@orvel.example","handle":"one"})");
    }
    if (isTo(request, FakeService::diagnosticsPath)) {
        return success(R"({"received":1})");
    }
    return success(R"({"hints":["4155550134"]})");
}

URLResponse WeekService::answerUpload(const URLRequest& request) {
    const boost::json::value payload = boost::json::parse(request.body.value());
    const boost::json::array& records = payload.at("records").as_array();
    for (const boost::json::value& record : records) {
        store(record.as_object());
    }
    return success(fmt::format(
        R"({{"acceptedWatermark":{},"accepted":{}}})",
        payload.at("watermark").as_int64(),
        records.size()));
}

void WeekService::store(const boost::json::object& record) {
    const std::string guid(record.at("guid").as_string());
    const std::size_t index = std::stoul(guid.substr(guidPrefix.size()));
    Message& message = messages_.at(index);
    if (record.at("chatGUID").as_string() != handles.at(static_cast<std::size_t>(message.chat))) {
        find(guid + " was sent with another conversation");
    }
    if (!isInScope(message.chat)) {
        find(guid + " of a stranger was sent");
    }
    // In this scope, the agent returns to the messages of the gap.
    const bool maySendAgain = scope_ == tavrin::ThreadScope::KnownContactsOnly && contactsGap_ &&
                              message.confirmedAt >= contactsGap_;
    if (message.confirmedAt && !maySendAgain) {
        find(guid + " was sent again after the service had accepted it");
    }
    message.isStored = true;
    if (network_ == Network::Online) {
        message.confirmedAt = with_.clock.uptime();
    }
}

URLResponse WeekService::tokens(
    std::string_view idToken, std::string_view refreshToken, std::string_view expiry) {
    return {
        200,
        fmt::format(
            R"({{"{}":"id-{}-{:.0f}","{}":"refresh-{}","{}":"{:.0f}"}})",
            idToken,
            session_,
            with_.clock.uptime().count() + tokenLifetime,
            refreshToken,
            session_,
            expiry,
            tokenLifetime)};
}

std::optional<WeekService::Token> WeekService::tokenOf(const URLRequest& request) {
    constexpr std::string_view prefix = "Bearer id-";
    for (const auto& [name, value] : request.headers) {
        if (name == "Authorization" && value.starts_with(prefix)) {
            std::istringstream text(value.substr(prefix.size()));
            Token token;
            char dash = 0;
            text >> token.session >> dash >> token.expiry;
            return token;
        }
    }
    return std::nullopt;
}

void WeekService::count(const URLRequest& request) {
    if (isTo(request, FakeService::refreshPath)) {
        ++refreshes_;
    } else {
        ++requests_;
    }
    const auto hour = static_cast<long>(with_.clock.uptime().count() / 3600);
    if (std::exchange(hour_, hour) != hour) {
        requestsInHour_ = 0;
    }
    if (network_ != Network::Online || !isTo(request, FakeService::ingestPath)) {
        mostRequestsInAnHour_ = std::max(mostRequestsInAnHour_, ++requestsInHour_);
    }
}

void WeekService::find(std::string what) {
    if (findings_.size() < maximalFindings) {
        findings_.push_back(std::move(what));
    }
}

} // namespace orvel::test
