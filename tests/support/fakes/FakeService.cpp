// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fakes/FakeService.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_from.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace orvel::test {

namespace {

bool isTo(const URLRequest& request, std::string_view path) {
    return request.url.find(path) != std::string::npos;
}

std::string envelope(const std::string& data) {
    return fmt::format(R"({{"ok":true,"data":{}}})", data);
}

} // namespace

FakeService::FakeService(FakeURLSession& session) : session_(session) {
    session_.setHandler([this](const URLRequest& request) { return answer(request); });
}

void FakeService::setAnswer(std::string_view path, FakeURLSession::Answer answer) {
    answers_.insert_or_assign(std::string(path), std::move(answer));
}

void FakeService::setAnswer(std::string_view path, int status, std::string body) {
    setAnswer(path, URLResponse{status, std::move(body)});
}

void FakeService::resetAnswer(std::string_view path) {
    answers_.erase(std::string(path));
}

std::size_t FakeService::requestCount(std::string_view path) const {
    const auto& requests = session_.requests();
    return static_cast<std::size_t>(std::ranges::count_if(
        requests, [path](const URLRequest& request) { return isTo(request, path); }));
}

FakeURLSession::Answer FakeService::answer(const URLRequest& request) {
    for (const auto& [path, answer] : answers_) {
        if (isTo(request, path)) {
            return answer;
        }
    }
    return URLResponse{200, trueAnswer(request)};
}

std::string FakeService::trueAnswer(const URLRequest& request) {
    if (isTo(request, digestPath)) {
        return envelope(fmt::format(
            R"({{"hints":{}}})", boost::json::serialize(boost::json::value_from(hints))));
    }
    if (isTo(request, ingestPath)) {
        const boost::json::value payload = boost::json::parse(request.body.value());
        const boost::json::array& records = payload.at("records").as_array();
        for (const boost::json::value& record : records) {
            guids_.emplace_back(record.at("guid").as_string());
        }
        return envelope(fmt::format(
            R"({{"acceptedWatermark":{},"accepted":{}}})",
            payload.at("watermark").as_int64(),
            records.size()));
    }
    if (isTo(request, diagnosticsPath)) {
        const boost::json::value payload = boost::json::parse(request.body.value());
        diagnostics_.clear();
        for (const boost::json::value& line : payload.at("lines").as_array()) {
            diagnostics_.emplace_back(line.as_string());
        }
        return envelope(fmt::format(R"({{"received":{}}})", diagnostics_.size()));
    }
    if (isTo(request, profilePath)) {
        return envelope(R"({"uid":"uid-1","email":"one@orvel.example","handle":"one"})");
    }
    if (isTo(request, deviceTokenPath)) {
        return envelope(R"({"customToken":"custom","uid":"uid-1"})");
    }
    if (isTo(request, customTokenPath)) {
        return R"({"idToken":"id-1","refreshToken":"refresh-1","expiresIn":"3600"})";
    }
    if (isTo(request, refreshPath)) {
        return R"({"id_token":"id-2","refresh_token":"refresh-2","expires_in":"3600"})";
    }
    return {};
}

} // namespace orvel::test
