// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/json/object.hpp>
#include <curl/curl.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// What came of one request.
struct ClientReply {
    CURLcode outcome = CURLE_OK;
    /// In the library's words, when the outcome is a failure.
    std::string problem;
    /// 0 when no status arrived.
    long status = 0;
    std::string headers;
    std::string body;

    /// The envelope. Throws when the body is none.
    [[nodiscard]] boost::json::object json() const;
    /// The envelope's "data".
    [[nodiscard]] boost::json::object data() const;
    /// The envelope's "code".
    [[nodiscard]] std::string code() const;
};

/// An HTTPS client that sends each request once, on a connection of its own.
struct Client {
    std::string url;
    std::filesystem::path caFile;
    /// Sent as the bearer token, unless empty.
    std::string token = "token";
    std::chrono::milliseconds timeout = std::chrono::seconds(60);

    [[nodiscard]] ClientReply get(const std::string& path) const;
    /// As application/json.
    [[nodiscard]] ClientReply post(const std::string& path, const std::string& body) const;
    [[nodiscard]] ClientReply send(
        const std::string& method,
        const std::string& path,
        const std::vector<std::string>& headers,
        const std::optional<std::string>& body = std::nullopt) const;
};

} // namespace orvel::test
