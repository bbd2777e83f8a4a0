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

/// A server on 127.0.0.1 whose connections are handled by the test, byte by byte. Counts
/// connections and requests. Uses TLS by default.
class LocalServer final {
public:
    struct Options {
        /// The server's certificate. If empty, one for 127.0.0.1 from a new authority.
        CertificateWithKey certificate;
        bool hasTLS = true;
        /// Supports TLS 1.1 at most.
        bool isOutdated = false;
    };

    struct Request {
        /// For example "GET /path HTTP/1.1".
        std::string line;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string body;

        /// The value of the first header with that name, or empty.
        [[nodiscard]] std::string header(std::string_view name) const;
        [[nodiscard]] bool hasHeader(std::string_view name) const;
    };

    /// The server's end of one connection, on its own thread. Reading and writing throw if the
    /// client has disconnected. An exception in the handler ends the connection.
    class Connection final {
    public:
        Connection(int descriptor, ssl_st* session, LocalServer& server)
            : descriptor_(descriptor), session_(session), server_(server) {}
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;

        Request readRequest();
        void write(std::string_view bytes);
        /// Sends a complete reply with its length.
        void reply(int status, std::string_view body, std::string_view headers = {});
        /// Returns when the client or the server closes the connection.
        void waitForEnd();

        /// Closes the TLS session, then the connection. Returning from the handler does the same.
        void close();
        /// Closes the connection without closing the TLS session, like an attacker or a crash.
        void cutOff();
        /// Resets the TCP connection.
        void reset();

        /// Whether the server has ended the connection.
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
    /// The path must begin with "/".
    [[nodiscard]] std::string url(std::string_view path = "/") const;
    /// The PEM certificate of the authority that is used unless the options name another.
    [[nodiscard]] std::string authority() const;

    /// The number of accepted connections.
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
