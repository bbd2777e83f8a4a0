// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "platform/URLSession.h"
#include "tests/support/LocalServer.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

/// One request and its results.
struct Exchange {
    std::unique_ptr<URLSession::Task> task;
    std::vector<URLResult> results;

    void start(URLSession& session, URLRequest request) {
        task = session.start(
            std::move(request), [this](URLResult result) { results.push_back(std::move(result)); });
    }

    const URLResult& result() {
        while (results.empty()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return results.front();
    }
};

inline std::optional<tavrin::URLErrorCode> errorCode(const URLResult& result) {
    const auto* error = std::get_if<tavrin::URLError>(&result);
    return error == nullptr ? std::nullopt : std::optional(error->code());
}

inline std::optional<std::pair<int, std::string>> reply(const URLResult& result) {
    const auto* response = std::get_if<URLResponse>(&result);
    return response == nullptr ? std::nullopt
                               : std::optional(std::pair(response->status, response->body));
}

inline URLResult resultOf(URLSession& session, URLRequest request) {
    Exchange exchange;
    exchange.start(session, std::move(request));
    return exchange.result();
}

inline URLRequest get(std::string url) {
    URLRequest request;
    request.url = std::move(url);
    return request;
}

inline void answerOK(LocalServer::Connection& connection) {
    connection.readRequest();
    connection.reply(200, "ok");
}

inline std::filesystem::path
written(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

} // namespace orvel::test
