// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/TestCertificates.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct ssl_st;

namespace orvel::test {

/// A server on 127.0.0.1 that does with each connection what the test says, down to the bytes, and
/// counts what arrives. With TLS, unless told otherwise.
class LocalServer final {
public:
    struct Options {
        /// Whom the client shows a certificate of; a fresh authority's for 127.0.0.1 when empty.
        CertificateWithKey certificate;
        bool hasTLS = true;
        /// Speaks TLS 1.1 at most.
        bool isOutdated = false;
    };

    struct Request {
        /// For example "GET /path HTTP/1.1".
        std::string line;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string body;

        /// The value of the first header of that name; empty when there is none.
        [[nodiscard]] std::string header(std::string_view name) const;
        [[nodiscard]] bool hasHeader(std::string_view name) const;
    };

    /// The server's end of one connection, on a thread of its own. Reading and writing throw when
    /// the client is gone; what the handler throws ends the connection.
    class Connection final {
    public:
        Connection(int descriptor, ssl_st* session, LocalServer& server)
            : descriptor_(descriptor), session_(session), server_(server) {}
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;

        Request readRequest();
        void write(std::string_view bytes);
        /// A whole reply that states its length.
        void reply(int status, std::string_view body, std::string_view headers = {});
        /// Returns when the client, or the server, closes the connection.
        void waitForEnd();

        /// Ends the connection as HTTPS wants it; so does returning from the handler.
        void close();
        /// Ends it without TLS's farewell, as an attacker or a crash would.
        void cutOff();
        /// Ends it with a reset in place of TCP's farewell.
        void reset();

        /// Whether one of these has been called.
        [[nodiscard]] bool isOver() const { return isOver_; }

    private:
        std::size_t read(char* data, std::size_t size);

        int descriptor_;
        ssl_st* session_;
        LocalServer& server_;
        bool isOver_ = false;
    };

    using Handler = std::function<void(Connection&)>;

    explicit LocalServer(Handler handler);
    LocalServer(Handler handler, Options options);
    /// Closes every connection and waits for the handlers.
    ~LocalServer();
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

    [[nodiscard]] int port() const;
    /// Of a path that begins with "/".
    [[nodiscard]] std::string url(std::string_view path = "/") const;
    /// The authority of the certificate that is used when the options name none; as PEM.
    [[nodiscard]] std::string authority() const;

    /// Connections accepted so far, whatever came of them.
    [[nodiscard]] std::size_t connectionCount() const;
    /// The requests read so far.
    [[nodiscard]] std::vector<Request> requests() const;

private:
    struct State;

    void accept();
    void wakeAcceptor() const;
    void serve(int descriptor);

    std::unique_ptr<State> state_;
};

} // namespace orvel::test
