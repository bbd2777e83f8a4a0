// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace orvel::service {

class CertificateAuthority;

/// HTTPS on 127.0.0.1: one request per connection, TLS 1.2 or newer.
///
/// A client that sends nothing occupies no thread. After ten seconds without a whole request head
/// its connection is closed; earlier if there are too many connections.
class HTTPSServer final {
public:
    /// Both are called on worker threads, concurrently.
    struct Callbacks {
        /// If it throws, the reply has status 500.
        std::function<Reply(const Request&)> handle;
        /// Whether the request may have a large body, judged before the body is read.
        std::function<bool(const Request&)> isTrusted;
        /// Like `loopbackPeer()`, called on the I/O thread. Without it, or if it fails when the
        /// server starts, the senders of requests stay undetermined.
        std::function<std::optional<uid_t>(std::uint16_t peerPort, std::uint16_t ownPort)>
            accountOf = {};
    };

    /// A longer body is dropped; the handler sees `Request::Body::TooLarge`.
    static constexpr std::size_t maxBodySize = std::size_t(16) * 1024 * 1024;
    /// The same for requests that are not trusted.
    static constexpr std::size_t maxUntrustedBodySize = std::size_t(64) * 1024;
    /// Of the request line and all headers. Others are answered with status 431.
    static constexpr std::size_t maxHeaderSize = std::size_t(64) * 1024;
    /// The oldest connection without a request is closed for one more: one of another account, if
    /// there is any, and never one of this account for one of another account.
    static constexpr std::size_t maxConnections = 256;

    /// The authority must outlive the server.
    HTTPSServer(const CertificateAuthority& authority, Callbacks callbacks)
        : authority_(authority), callbacks_(std::move(callbacks)) {}
    ~HTTPSServer() { stop(); }
    HTTPSServer(const HTTPSServer&) = delete;
    HTTPSServer& operator=(const HTTPSServer&) = delete;

    /// Returns the port once it listens. Port 0 picks any free one. Throws `ServiceError`.
    std::uint16_t start(std::uint16_t port);

    /// Returns when the last reply has been sent. Does nothing if the server is not running.
    void stop();

private:
    class Running;

    const CertificateAuthority& authority_;
    const Callbacks callbacks_;
    /// A shared pointer, because it can destroy a type that is declared only.
    std::shared_ptr<Running> running_;
};

} // namespace orvel::service
