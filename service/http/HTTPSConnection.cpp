// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTPSConnection.h"

#include "service/http/Envelope.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <string_view>
#include <utility>

namespace orvel::service {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

// From the connection to the end of the request's headers.
constexpr std::chrono::seconds headTimeout(10);
constexpr std::chrono::seconds bodyTimeout(20);
constexpr std::chrono::seconds trustedBodyTimeout(120);
constexpr std::chrono::seconds replyTimeout(60);
// How long the client may take to close.
constexpr std::chrono::seconds closeTimeout(5);

constexpr std::size_t maxTargetSize = std::size_t(8) * 1024;
constexpr std::ptrdiff_t maxHeaderLines = 200;
constexpr std::size_t chunkSize = std::size_t(16) * 1024;
// A client that is still sending may not read the reply, so read on for a while.
constexpr std::size_t maxDiscarded = 4 * HTTPSServer::maxBodySize;

constexpr std::string_view continueReply = "HTTP/1.1 100 Continue\r\n\r\n";

std::string_view view(beast::string_view text) {
    return {text.data(), text.size()};
}

Request translated(const http::request<http::empty_body>& from) {
    Request request;
    request.method = view(from.method_string());
    request.setTarget(view(from.target()));
    for (const auto& field : from) {
        request.headers.emplace_back(view(field.name_string()), view(field.value()));
    }
    return request;
}

/// For requests that are refused without calling the handler.
Refusal protocolRefusal(int status) {
    switch (status) {
    case 414:
        return {status, "uri_too_long", "The request's path is too long."};
    case 431:
        return {
            status,
            "headers_too_large",
            "The request's headers are too large. If a browser shows this, delete its cookies for "
            "127.0.0.1."};
    case 500:
        return {status, "internal_error", "The request could not be carried out."};
    default:
        return {status, "invalid_request", "The request is not proper HTTP."};
    }
}

/// The status of the reply to a request that cannot be read. No value if there is no client any
/// more to read a reply.
std::optional<int> statusOf(const HTTPSConnection::Error& error) {
    if (error == asio::error::not_found || error == http::error::header_limit) {
        return 431;
    }
    const bool isProtocolError =
        error.category() == http::make_error_code(http::error::end_of_stream).category() &&
        error != http::error::end_of_stream && error != http::error::partial_message;
    return isProtocolError ? std::optional(400) : std::nullopt;
}

} // namespace

HTTPSConnection::HTTPSConnection(Socket socket, Request::Sender sender, Environment& environment)
    : stream_(std::move(socket), environment.tls),
      sender_(sender),
      environment_(environment),
      buffer_(HTTPSServer::maxHeaderSize) {
    head_.header_limit(static_cast<std::uint32_t>(HTTPSServer::maxHeaderSize));
    // The bodies have limits here.
    head_.body_limit(boost::none);
}

template <typename Action, typename Next>
void HTTPSConnection::onWorker(Action action, Next next) {
    asio::post(
        environment_.workers,
        [self = shared_from_this(),
         // The I/O thread must not end before the action.
         work = asio::make_work_guard(stream_.get_executor()),
         action = std::move(action),
         next = std::move(next)]() mutable {
            auto result = action();
            // The connection must not end on this thread.
            asio::post(
                work.get_executor(),
                [self = std::move(self),
                 next = std::move(next),
                 result = std::move(result)]() mutable { next(std::move(result)); });
        });
}

void HTTPSConnection::start() {
    beast::get_lowest_layer(stream_).expires_after(headTimeout);
    stream_.async_handshake(
        asio::ssl::stream_base::server,
        beast::bind_front_handler(&HTTPSConnection::onHandshake, shared_from_this()));
}

void HTTPSConnection::onHandshake(Error error) {
    if (!error) {
        // The parser needs several times the memory of the text, so it gets the whole text at once.
        asio::async_read_until(
            stream_,
            asio::dynamic_buffer(headText_, HTTPSServer::maxHeaderSize),
            asio::string_view("\r\n\r\n"),
            beast::bind_front_handler(&HTTPSConnection::onHeadText, shared_from_this()));
    }
}

void HTTPSConnection::onHeadText(Error error, std::size_t size) {
    if (error) {
        onHead(error, 0);
    } else if (
        std::ranges::count(std::string_view(headText_).substr(0, size), '\n') > maxHeaderLines) {
        refuse(431);
    } else {
        // With the beginning of the body, if that has arrived, too.
        buffer_.commit(
            asio::buffer_copy(buffer_.prepare(headText_.size()), asio::buffer(headText_)));
        headText_ = {};
        http::async_read_header(
            stream_,
            buffer_,
            head_,
            beast::bind_front_handler(&HTTPSConnection::onHead, shared_from_this()));
    }
}

void HTTPSConnection::onHead(Error error, std::size_t) {
    if (error) {
        if (const auto status = statusOf(error)) {
            refuse(*status);
        }
        return;
    }
    const auto& head = head_.get();
    if (head.method() == http::verb::unknown) {
        refuse(400);
    } else if (head.target().size() > maxTargetSize) {
        refuse(414);
    } else {
        request_ = translated(head);
        request_.sender = sender_;
        if (head_.is_done()) {
            handle();
            return;
        }
        // A compressed body could exceed every limit.
        if (head.find(http::field::content_encoding) != head.end()) {
            request_.bodyState = Request::Body::Encoded;
        }
        onWorker(
            [this] {
                try {
                    return environment_.callbacks.isTrusted(request_);
                } catch (const std::exception&) {
                    return false;
                }
            },
            [this](bool isTrusted) { receiveBody(isTrusted); });
    }
}

void HTTPSConnection::receiveBody(bool isTrusted) {
    isTrusted_ = isTrusted;
    beast::get_lowest_layer(stream_).expires_after(isTrusted ? trustedBodyTimeout : bodyTimeout);
    const bool wantsContinue =
        beast::iequals(head_.get()[http::field::expect], beast::string_view("100-continue"));
    body_.emplace(std::move(head_));
    chunk_.resize(chunkSize);
    if (!wantsContinue) {
        readBody();
        return;
    }
    asio::async_write(
        stream_,
        asio::buffer(continueReply),
        [self = shared_from_this()](Error error, std::size_t) {
            if (!error) {
                self->readBody();
            }
        });
}

void HTTPSConnection::readBody() {
    auto& body = body_->get().body();
    body.data = chunk_.data();
    body.size = chunk_.size();
    http::async_read(
        stream_,
        buffer_,
        *body_,
        beast::bind_front_handler(&HTTPSConnection::onBody, shared_from_this()));
}

void HTTPSConnection::onBody(Error error, std::size_t) {
    if (error && error != http::error::need_buffer) {
        if (const auto status = statusOf(error)) {
            refuse(*status);
        }
        return;
    }
    keep(chunk_.data(), chunk_.size() - body_->get().body().size);
    if (body_->is_done() || received_ > maxDiscarded) {
        handle();
    } else {
        readBody();
    }
}

void HTTPSConnection::keep(const char* bytes, std::size_t count) {
    received_ += count;
    const auto limit = isTrusted_ ? HTTPSServer::maxBodySize : HTTPSServer::maxUntrustedBodySize;
    if (request_.bodyState == Request::Body::Complete) {
        if (received_ <= limit) {
            request_.body.append(bytes, count);
        } else {
            request_.bodyState = Request::Body::TooLarge;
            request_.body = {};
        }
    }
}

void HTTPSConnection::handle() {
    state_ = State::Answering;
    beast::get_lowest_layer(stream_).expires_never();
    onWorker(
        [this]() -> Reply {
            try {
                return environment_.callbacks.handle(request_);
            } catch (const std::exception&) {
                return refused(protocolRefusal(500));
            }
        },
        [this](Reply reply) { deliver(std::move(reply)); });
}

void HTTPSConnection::refuse(int status) {
    state_ = State::Answering;
    deliver(refused(protocolRefusal(status)));
}

void HTTPSConnection::deliver(Reply reply) {
    if (reply.delivery == Reply::Delivery::Reset) {
        reset();
    } else {
        send(std::move(reply));
    }
}

void HTTPSConnection::send(Reply reply) {
    response_.result(static_cast<unsigned>(reply.status));
    response_.set(http::field::cache_control, "no-store");
    for (const auto& [name, value] : reply.headers) {
        response_.set(name, value);
    }
    response_.set(http::field::content_type, reply.contentType);
    response_.keep_alive(false);
    std::uint64_t announced = reply.file ? reply.fileSize : reply.body.size();
    std::uint64_t sent = announced;
    if (request_.method == "HEAD") {
        sent = 0;
    } else if (reply.delivery == Reply::Delivery::CutOff) {
        sent = announced / 2;
        ++announced;
    }
    response_.content_length(announced);
    response_.body() = {std::move(reply.body), std::move(reply.file), sent};
    state_ = State::Sending;
    beast::get_lowest_layer(stream_).expires_after(replyTimeout);
    http::async_write(
        stream_,
        response_,
        beast::bind_front_handler(&HTTPSConnection::onSent, shared_from_this()));
}

void HTTPSConnection::reset() {
    Error ignored;
    beast::get_lowest_layer(stream_).socket().set_option(
        asio::socket_base::linger(true, 0), ignored);
    close();
}

void HTTPSConnection::onSent(Error error, std::size_t) {
    if (error) {
        return;
    }
    state_ = State::Closing;
    beast::get_lowest_layer(stream_).expires_after(closeTimeout);
    stream_.async_shutdown(
        beast::bind_front_handler(&HTTPSConnection::onShutDown, shared_from_this()));
}

void HTTPSConnection::onShutDown(Error error) {
    // Otherwise the client is still sending. Closing now would reset the connection, and the client
    // would not get the reply.
    if (error && error != asio::error::eof) {
        chunk_.resize(chunkSize);
        discard();
    }
}

void HTTPSConnection::discard() {
    beast::get_lowest_layer(stream_).async_read_some(
        asio::buffer(chunk_), [self = shared_from_this()](Error error, std::size_t count) {
            self->received_ += count;
            if (!error && self->received_ <= maxDiscarded) {
                self->discard();
            }
        });
}

} // namespace orvel::service
