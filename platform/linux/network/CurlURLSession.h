// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace orvel {

/// HTTPS exchanges with libcurl, all on one worker thread.
///
/// Each exchange uses a new connection, because libcurl sends a request again when a reused
/// connection turns out to be closed. For the same reason it uses HTTP/1.1 only: libcurl repeats a
/// request when an HTTP/2 server refuses the stream. The environment's proxy settings
/// ("https_proxy", "no_proxy") apply; the request's headers are never sent to the proxy.
class CurlURLSession final : public URLSession {
public:
    struct Trust {
        /// PEM files of certificates to trust in addition to the system's.
        std::vector<std::filesystem::path> extraCertificates;
        /// A PEM file that replaces the system's certificates.
        std::optional<std::filesystem::path> systemCertificates;
    };

    /// Throws `tavrin::PlatformError` when a file of extra certificates cannot be read or contains
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
