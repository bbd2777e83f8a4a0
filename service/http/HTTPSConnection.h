// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"
#include "service/http/HTTPSServer.h"
#include "service/http/ReplyBody.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::service {

/// One connection of `HTTPSServer`: the TLS handshake, one request, its reply. Every step has a
/// time limit, so that a slow or silent client cannot keep it.
///
/// Runs on the server's I/O thread. Only the server's callbacks run on its workers. The pending
/// operations own the connection: it closes when there is none.
class HTTPSConnection final : public std::enable_shared_from_this<HTTPSConnection> {
public:
    using Socket = boost::asio::ip::tcp::socket;
    using Error = boost::beast::error_code;

    /// What all connections share. It must outlive them.
    struct Environment {
        boost::asio::ssl::context tls{boost::asio::ssl::context::tls_server};
        boost::asio::thread_pool& workers;
        const HTTPSServer::Callbacks& callbacks;
    };

    HTTPSConnection(Socket socket, Request::Sender sender, Environment& environment);
    HTTPSConnection(const HTTPSConnection&) = delete;
    HTTPSConnection& operator=(const HTTPSConnection&) = delete;

    void start();

    [[nodiscard]] bool isOfOtherAccount() const { return sender_ == Request::Sender::Other; }
    /// Whether it waits for a request that has shown no accepted token, or for the client to close.
    [[nodiscard]] bool isIdle() const {
        return (state_ == State::Receiving && !isTrusted_) || state_ == State::Closing;
    }
    /// Whether it sends a reply to a request that has shown no accepted token.
    [[nodiscard]] bool isSendingToStranger() const {
        return state_ == State::Sending && !isTrusted_;
    }
    /// Whether the client is still to get a reply.
    [[nodiscard]] bool isAnswering() const {
        return state_ == State::Answering || state_ == State::Sending;
    }

    void close() { boost::beast::get_lowest_layer(stream_).close(); }

private:
    enum class State { Receiving, Answering, Sending, Closing };

    void onHandshake(Error error);
    void onHeadText(Error error, std::size_t size);
    void onHead(Error error, std::size_t);
    void receiveBody(bool isTrusted);
    void readBody();
    void onBody(Error error, std::size_t);
    void keep(const char* bytes, std::size_t count);
    void handle();
    void refuse(int status);
    void deliver(Reply reply);
    void send(Reply reply);
    void reset();
    void onSent(Error error, std::size_t);
    void onShutDown(Error error);
    void discard();

    /// Calls `action` on a worker and `next` with its result on the I/O thread.
    template <typename Action, typename Next>
    void onWorker(Action action, Next next);

    boost::beast::ssl_stream<boost::beast::tcp_stream> stream_;
    const Request::Sender sender_;
    Environment& environment_;
    State state_ = State::Receiving;
    bool isTrusted_ = false;
    std::string headText_;
    boost::beast::flat_buffer buffer_;
    boost::beast::http::request_parser<boost::beast::http::empty_body> head_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::buffer_body>> body_;
    std::vector<char> chunk_;
    /// The bytes of the body, then those that are discarded before the connection closes.
    std::size_t received_ = 0;
    Request request_;
    boost::beast::http::response<ReplyBody> response_;
};

} // namespace orvel::service
