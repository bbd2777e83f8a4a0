// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTPSServer.h"

#include "service/http/CertificateAuthority.h"
#include "service/http/Envelope.h"
#include "service/support/ServiceError.h"

#include <httplib.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <exception>
#include <future>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace orvel::service {

namespace {

constexpr const char* address = "127.0.0.1";
constexpr std::size_t workers = 8;
// How long a silent client can block a worker, and with it `stop()`.
constexpr std::chrono::seconds ioTimeout(5);

/// All replies of the handler have this header. The library's own replies lack it.
constexpr const char* handlerHeader = "Cache-Control";

bool configure(SSL_CTX& context, const CertificateAuthority& authority) {
    return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1 &&
           // A session ticket would be sent before the reply, but a reset must be the first thing
           // sent.
           SSL_CTX_set_num_tickets(&context, 0) == 1 &&
           SSL_CTX_use_certificate(&context, authority.serverCertificate()) == 1 &&
           SSL_CTX_use_PrivateKey(&context, authority.serverKey()) == 1;
}

Request translated(const httplib::Request& from) {
    Request request;
    request.method = from.method;
    request.path = from.path;
    const auto mark = from.target.find('?');
    request.query = mark == std::string::npos ? "" : from.target.substr(mark + 1);
    for (const auto& [name, value] : from.headers) {
        // The library adds pseudo headers.
        const std::string_view view = name;
        if (!view.starts_with("REMOTE_") && !view.starts_with("LOCAL_")) {
            request.headers.emplace_back(name, value);
        }
    }
    return request;
}

void readBody(
    const httplib::Request& from, const httplib::ContentReader& reader, Request& request) {
    if (!from.has_header("Content-Length") && !from.has_header("Transfer-Encoding")) {
        return;
    }
    // A compressed body could exceed every limit, and the library would parse a form itself.
    if (from.has_header("Content-Encoding") || from.is_multipart_form_data()) {
        request.bodyState = Request::Body::Encoded;
    }
    if (from.is_multipart_form_data()) {
        return;
    }
    std::size_t size = 0;
    const bool isRead = reader([&](const char* bytes, std::size_t count) {
        size += count;
        if (size <= HTTPSServer::maxBodySize && request.bodyState == Request::Body::Complete) {
            request.body.append(bytes, count);
        }
        // Read on for a while: a client that is still sending does not read the reply.
        return size <= 4 * HTTPSServer::maxBodySize;
    });
    if (request.bodyState == Request::Body::Complete) {
        if (size > HTTPSServer::maxBodySize) {
            request.bodyState = Request::Body::TooLarge;
        } else if (!isRead) {
            request.bodyState = Request::Body::Unreadable;
        }
    }
    if (request.bodyState != Request::Body::Complete) {
        request.body.clear();
    }
}

/// Closes the connection at once, with a reset unless the process is out of descriptors. The
/// library closes the descriptor itself, so it is redirected to a dead socket until then.
void resetConnection(const httplib::Request& from) {
    // Newer versions of the library declare it as `const void*`.
    const void* const session = from.ssl;
    const int connection = SSL_get_fd(static_cast<const SSL*>(session));
    linger noLinger{};
    noLinger.l_onoff = 1;
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &noLinger, sizeof noLinger);
    bool isReset = false;
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0) {
        close(ends[1]);
        // Closes the connection; with SO_LINGER 0 that sends a reset.
        isReset = dup2(ends[0], connection) >= 0;
        close(ends[0]);
    }
    if (!isReset) {
        shutdown(connection, SHUT_RDWR);
    }
}

void deliver(const httplib::Request& from, Reply reply, httplib::Response& to) {
    to.status = reply.status;
    to.set_header(handlerHeader, "no-store");
    for (const auto& [name, value] : reply.headers) {
        to.set_header(name, value);
    }
    switch (reply.delivery) {
    case Reply::Delivery::Complete:
        to.set_header("Content-Type", reply.contentType);
        to.body = std::move(reply.body);
        return;
    case Reply::Delivery::Reset:
        resetConnection(from);
        return;
    case Reply::Delivery::CutOff: {
        const std::size_t size = reply.body.size();
        to.set_content_provider(
            size + 1,
            reply.contentType,
            [body = std::move(reply.body)](std::size_t, std::size_t, httplib::DataSink& sink) {
                sink.write(body.data(), body.size() / 2);
                return false;
            });
        return;
    }
    }
}

/// For requests that the library refuses without calling the handler.
Refusal protocolRefusal(int status) {
    switch (status) {
    case 413:
        return {status, "payload_too_large", "The request body is too large."};
    case 414:
        return {status, "uri_too_long", "The request's path is too long."};
    case 404:
        return {status, "not_found", "There is nothing at this path."};
    case 500:
        return {status, "internal_error", "The request could not be carried out."};
    default:
        return {status, "invalid_request", "The request is not proper HTTP."};
    }
}

} // namespace

struct HTTPSServer::Running {
    explicit Running(const CertificateAuthority& authority)
        : server([&authority](SSL_CTX& context) { return configure(context, authority); }) {}

    httplib::SSLServer server;
    std::thread thread;
};

std::uint16_t HTTPSServer::start(std::uint16_t port) {
    assert(!running_);
    auto running = std::make_shared<Running>(authority_);
    auto& server = running->server;
    if (!server.is_valid()) {
        throw ServiceError(ServiceError::Certificate{"it does not fit its key"});
    }

    const auto withoutBody = [this](const httplib::Request& from, httplib::Response& to) {
        deliver(from, handler_(translated(from)), to);
    };
    const auto withBody = [this](
                              const httplib::Request& from,
                              httplib::Response& to,
                              const httplib::ContentReader& reader) {
        auto request = translated(from);
        readBody(from, reader, request);
        deliver(from, handler_(request), to);
    };
    server.Get(".*", withoutBody);
    server.Options(".*", withoutBody);
    server.Post(".*", withBody);
    server.Put(".*", withBody);
    server.Patch(".*", withBody);
    server.Delete(".*", withBody);
    server.set_error_handler(
        httplib::Server::Handler([](const httplib::Request& from, httplib::Response& to) {
            if (!to.has_header(handlerHeader)) {
                deliver(from, refused(protocolRefusal(to.status)), to);
            }
        }));
    server.set_exception_handler(
        [](const httplib::Request& from, httplib::Response& to, std::exception_ptr) {
            deliver(from, refused(protocolRefusal(500)), to);
        });
    server.set_keep_alive_max_count(1);
    server.set_keep_alive_timeout(ioTimeout.count());
    server.set_read_timeout(ioTimeout);
    server.set_write_timeout(ioTimeout);
    // The library's default lets several programs share the port.
    server.set_socket_options([](int socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });

    errno = 0;
    const int bound = port == 0                            ? server.bind_to_any_port(address)
                      : server.bind_to_port(address, port) ? port
                                                           : -1;
    if (bound < 0) {
        throw ServiceError(ServiceError::Listen{port, std::generic_category().message(errno)});
    }

    // The library creates its thread pool once it listens. Stopping it has no effect before that.
    std::promise<void> listening;
    server.new_task_queue = [&listening] {
        listening.set_value();
        return new httplib::ThreadPool(workers);
    };
    running->thread = std::thread([&server] { server.listen_after_bind(); });
    listening.get_future().wait();
    running_ = std::move(running);
    return static_cast<std::uint16_t>(bound);
}

void HTTPSServer::stop() {
    if (!running_) {
        return;
    }
    running_->server.stop();
    running_->thread.join();
    running_.reset();
}

} // namespace orvel::service
