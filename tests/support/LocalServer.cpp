// SPDX-License-Identifier: Apache-2.0
#include "tests/support/LocalServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace orvel::test {

namespace {

struct ClientGone final : std::runtime_error {
    ClientGone() : std::runtime_error("The client is gone.") {}
};

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool isSameName(std::string_view one, std::string_view other) {
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

/// Writing to a connection that the client has reset must not end the process with SIGPIPE.
void blockBrokenPipes() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

/// Returns the descriptor, closed in programs that this process starts.
int keptToOurselves(int descriptor) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

} // namespace

struct LocalServer::State {
    Handler handler;
    CertificateAuthority authority;
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> tls{nullptr, SSL_CTX_free};
    int listener = -1;
    int port = 0;

    mutable std::mutex mutex;
    std::set<int> open;
    std::vector<std::thread> threads;
    std::size_t connectionCount = 0;
    bool isStopping = false;
    std::vector<Request> requests;
    std::thread acceptor;
};

std::string LocalServer::Request::header(std::string_view name) const {
    const auto found = std::ranges::find_if(
        headers, [name](const auto& header) { return isSameName(header.first, name); });
    return found == headers.end() ? "" : found->second;
}

bool LocalServer::Request::hasHeader(std::string_view name) const {
    return std::ranges::any_of(
        headers, [name](const auto& header) { return isSameName(header.first, name); });
}

LocalServer::Request LocalServer::Connection::readRequest() {
    std::string bytes;
    std::size_t end = std::string::npos;
    std::array<char, 16'384> buffer{};
    while ((end = bytes.find("\r\n\r\n")) == std::string::npos) {
        bytes.append(buffer.data(), read(buffer.data(), buffer.size()));
    }
    Request request;
    std::size_t start = bytes.find("\r\n");
    request.line = bytes.substr(0, start);
    while (start < end) {
        start += 2;
        const std::size_t next = bytes.find("\r\n", start);
        const std::string line = bytes.substr(start, next - start);
        const std::size_t colon = line.find(':');
        const std::size_t value = line.find_first_not_of(' ', colon + 1);
        request.headers.emplace_back(
            line.substr(0, colon), value == std::string::npos ? "" : line.substr(value));
        start = next;
    }
    const std::string length = request.header("Content-Length");
    std::size_t bodyLength = 0;
    std::from_chars(length.data(), length.data() + length.size(), bodyLength);
    request.body = bytes.substr(end + 4);
    while (request.body.size() < bodyLength) {
        request.body.append(buffer.data(), read(buffer.data(), buffer.size()));
    }
    const std::lock_guard lock(server_.state_->mutex);
    server_.state_->requests.push_back(request);
    return request;
}

std::size_t LocalServer::Connection::read(char* data, std::size_t size) {
    std::size_t length = 0;
    if (session_ != nullptr) {
        if (SSL_read_ex(session_, data, size, &length) != 1) {
            throw ClientGone();
        }
        return length;
    }
    const ssize_t count = recv(descriptor_, data, size, 0);
    if (count <= 0) {
        throw ClientGone();
    }
    return static_cast<std::size_t>(count);
}

void LocalServer::Connection::write(std::string_view bytes) {
    while (!bytes.empty()) {
        std::size_t length = 0;
        if (session_ != nullptr) {
            if (SSL_write_ex(session_, bytes.data(), bytes.size(), &length) != 1) {
                throw ClientGone();
            }
        } else {
            const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), 0);
            if (count < 0) {
                throw ClientGone();
            }
            length = static_cast<std::size_t>(count);
        }
        bytes.remove_prefix(length);
    }
}

void LocalServer::Connection::reply(int status, std::string_view body, std::string_view headers) {
    write(
        "HTTP/1.1 " + std::to_string(status) + " Reply\r\n" + std::string(headers) +
        "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body));
}

void LocalServer::Connection::waitForEnd() {
    std::array<char, 4096> buffer{};
    try {
        while (true) {
            read(buffer.data(), buffer.size());
        }
    } catch (const ClientGone&) {
        // The connection has ended.
    }
}

void LocalServer::Connection::close() {
    if (session_ != nullptr) {
        SSL_shutdown(session_);
    }
    cutOff();
}

void LocalServer::Connection::cutOff() {
    isOver_ = true;
    shutdown(descriptor_, SHUT_WR);
    // Unread bytes would turn the close into a reset.
    std::array<char, 4096> buffer{};
    while (recv(descriptor_, buffer.data(), buffer.size(), 0) > 0) {
    }
}

void LocalServer::Connection::reset() {
    isOver_ = true;
    linger none{};
    none.l_onoff = 1;
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
}

LocalServer::LocalServer(Handler handler) : LocalServer(std::move(handler), Options()) {}

LocalServer::LocalServer(Handler handler, Options options) : state_(std::make_unique<State>()) {
    state_->handler = std::move(handler);
    if (options.hasTLS) {
        if (!options.certificate.certificate) {
            options.certificate = state_->authority.issue("IP:127.0.0.1");
        }
        state_->tls.reset(SSL_CTX_new(TLS_server_method()));
        SSL_CTX* const tls = state_->tls.get();
        SSL_CTX_use_certificate(tls, options.certificate.certificate.get());
        SSL_CTX_use_PrivateKey(tls, options.certificate.key.get());
        if (options.isOutdated) {
            SSL_CTX_set_security_level(tls, 0);
            SSL_CTX_set_min_proto_version(tls, TLS1_VERSION);
            SSL_CTX_set_max_proto_version(tls, TLS1_1_VERSION);
        }
    }
    state_->listener = keptToOurselves(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address = loopback(0);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof(address);
    if (bind(state_->listener, plain, length) != 0 || listen(state_->listener, 64) != 0 ||
        getsockname(state_->listener, plain, &length) != 0) {
        fail("A listening socket");
    }
    state_->port = ntohs(address.sin_port);
    state_->acceptor = std::thread([this] { accept(); });
}

LocalServer::~LocalServer() {
    {
        const std::lock_guard lock(state_->mutex);
        state_->isStopping = true;
    }
    wakeAcceptor();
    state_->acceptor.join();
    {
        const std::lock_guard lock(state_->mutex);
        for (const int descriptor : state_->open) {
            shutdown(descriptor, SHUT_RDWR);
        }
    }
    for (std::thread& thread : state_->threads) {
        thread.join();
    }
    ::close(state_->listener);
}

void LocalServer::wakeAcceptor() const {
    // On some systems, accept() does not return when the socket is shut down.
    const int caller = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port());
    connect(caller, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    ::close(caller);
}

int LocalServer::port() const {
    return state_->port;
}

std::string LocalServer::url(std::string_view path) const {
    return "https://127.0.0.1:" + std::to_string(port()) + std::string(path);
}

std::string LocalServer::authority() const {
    return state_->authority.certificate();
}

std::size_t LocalServer::connectionCount() const {
    const std::lock_guard lock(state_->mutex);
    return state_->connectionCount;
}

std::vector<LocalServer::Request> LocalServer::requests() const {
    const std::lock_guard lock(state_->mutex);
    return state_->requests;
}

void LocalServer::accept() {
    blockBrokenPipes();
    while (true) {
        const int descriptor = keptToOurselves(::accept(state_->listener, nullptr, nullptr));
        const std::lock_guard lock(state_->mutex);
        if (descriptor < 0) {
            return;
        }
        if (state_->isStopping) {
            ::close(descriptor);
            return;
        }
        ++state_->connectionCount;
        state_->open.insert(descriptor);
        state_->threads.emplace_back([this, descriptor] { serve(descriptor); });
    }
}

void LocalServer::serve(int descriptor) {
    SSL* session = nullptr;
    bool isReady = true;
    if (state_->tls) {
        session = SSL_new(state_->tls.get());
        SSL_set_fd(session, descriptor);
        isReady = SSL_accept(session) == 1;
    }
    if (isReady) {
        Connection connection(descriptor, session, *this);
        try {
            state_->handler(connection);
            if (!connection.isOver()) {
                connection.close();
            }
        } catch (const ClientGone&) {
            // Tests may let the client disconnect.
        }
    }
    SSL_free(session);
    const std::lock_guard lock(state_->mutex);
    state_->open.erase(descriptor);
    ::close(descriptor);
}

} // namespace orvel::test
