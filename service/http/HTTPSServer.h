// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace orvel::service {

class CertificateAuthority;

/// HTTPS on 127.0.0.1: one request per connection, TLS 1.2 or newer.
class HTTPSServer final {
public:
    /// Called on worker threads, concurrently. If it throws, the reply has status 500.
    using Handler = std::function<Reply(const Request&)>;

    /// A longer body is dropped; the handler sees `Request::Body::TooLarge`.
    static constexpr std::size_t maxBodySize = std::size_t(16) * 1024 * 1024;

    /// The authority must outlive the server.
    HTTPSServer(const CertificateAuthority& authority, Handler handler)
        : authority_(authority), handler_(std::move(handler)) {}
    ~HTTPSServer() { stop(); }
    HTTPSServer(const HTTPSServer&) = delete;
    HTTPSServer& operator=(const HTTPSServer&) = delete;

    /// Returns the port once it listens. Port 0 picks any free one. Throws `ServiceError`.
    std::uint16_t start(std::uint16_t port);

    /// Returns when the last reply has been sent. Does nothing if the server is not running.
    void stop();

private:
    struct Running;

    const CertificateAuthority& authority_;
    Handler handler_;
    /// A shared pointer, because it can destroy a type that is declared only.
    std::shared_ptr<Running> running_;
};

} // namespace orvel::service
