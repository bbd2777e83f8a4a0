// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace orvel {

/// Exchanges through libcurl, all on one thread of its own.
///
/// Each takes a fresh connection, because libcurl sends a request a second time when a connection
/// that it used before turns out to be closed; for the same reason it speaks HTTP/1.1 only, as an
/// HTTP/2 server may refuse a stream, which libcurl then opens again. The system's proxy settings
/// ("https_proxy", "no_proxy") count; the request's headers go to the server alone.
class CurlURLSession final : public URLSession {
public:
    struct Trust {
        /// PEM files of certificates to trust besides the system's.
        std::vector<std::filesystem::path> extraCertificates;
        /// A PEM file in place of the one with the system's certificates.
        std::optional<std::filesystem::path> systemCertificates;
    };

    /// Throws `tavrin::PlatformError` when a file of extra certificates cannot be read or holds
    /// none.
    explicit CurlURLSession(Trust trust = {});
    ~CurlURLSession() override;

    [[nodiscard]] std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) override;

private:
    class Worker;
    class CurlTask;
    struct State;

    std::shared_ptr<State> state_;
};

} // namespace orvel
