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

/// The result of one request.
struct ClientReply {
    CURLcode outcome = CURLE_OK;
    /// The library's error message, if the request failed.
    std::string problem;
    /// 0 if no status arrived.
    long status = 0;
    std::string headers;
    std::string body;

    /// The envelope. Throws if the body is not one.
    [[nodiscard]] boost::json::object json() const;
    /// The envelope's "data".
    [[nodiscard]] boost::json::object data() const;
    /// The envelope's "code".
    [[nodiscard]] std::string code() const;
};

/// An HTTPS client that sends each request once, on a new connection.
struct Client {
    std::string url;
    std::filesystem::path caFile;
    /// Sent as the bearer token, if not empty.
    std::string token = "token";
    /// Sent as the Cookie header, if not empty.
    std::string cookie = {};
    std::chrono::milliseconds timeout = std::chrono::seconds(60);

    [[nodiscard]] ClientReply get(const std::string& path) const;
    /// Sends the body as application/json.
    [[nodiscard]] ClientReply post(const std::string& path, const std::string& body) const;
    [[nodiscard]] ClientReply send(
        const std::string& method,
        const std::string& path,
        const std::vector<std::string>& headers,
        const std::optional<std::string>& body = std::nullopt) const;
};

} // namespace orvel::test
