// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTPSServer.h"

#include "service/http/CertificateAuthority.h"
#include "service/http/HTTPSConnection.h"
#include "service/support/ServiceError.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <openssl/ssl.h>
#include <unistd.h>

#include <cassert>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <thread>
#include <utility>

namespace orvel::service {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

constexpr std::size_t workers = 8;
/// Before the next attempt, if a connection cannot be accepted.
constexpr std::chrono::milliseconds acceptPause(50);

bool configure(SSL_CTX* context, const CertificateAuthority& authority) {
    // Sessions would be kept for clients that come back, but memory is for requests.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION);
    return SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1 &&
           // A session ticket would be sent before the reply, but a reset must be the first thing
           // sent.
           SSL_CTX_set_num_tickets(context, 0) == 1 &&
           SSL_CTX_use_certificate(context, authority.serverCertificate()) == 1 &&
           SSL_CTX_use_PrivateKey(context, authority.serverKey()) == 1;
}

} // namespace

/// The listening socket, the I/O thread, the workers and the connections.
class HTTPSServer::Running final {
public:
    Running(const CertificateAuthority& authority, const Callbacks& callbacks)
        : environment_{.workers = workers_, .callbacks = callbacks} {
        if (!configure(environment_.tls.native_handle(), authority)) {
            throw ServiceError(ServiceError::Certificate{"it does not fit its key"});
        }
    }
    ~Running() {
        if (thread_.joinable()) {
            stop();
        }
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    std::uint16_t start(std::uint16_t port) {
        try {
            acceptor_.open(tcp::v4());
            acceptor_.set_option(tcp::acceptor::reuse_address(true));
            acceptor_.bind({asio::ip::address_v4::loopback(), port});
            acceptor_.listen();
        } catch (const boost::system::system_error& error) {
            throw ServiceError(ServiceError::Listen{port, error.code().message()});
        }
        const auto bound = acceptor_.local_endpoint().port();
        knowsAccounts_ = canTellAccounts(bound);
        accept();
        thread_ = std::thread([this] { runContext(); });
        return bound;
    }

    void stop() {
        asio::post(context_, [this] {
            acceptor_.close();
            pause_.cancel();
            for (const auto& known : connections_) {
                const auto connection = known.lock();
                if (connection && !connection->isAnswering()) {
                    connection->close();
                }
            }
            isStopping_ = true;
        });
        keepsRunning_.reset();
        // Ends with the last connection.
        thread_.join();
        workers_.join();
    }

private:
    /// Whether the system tells the accounts of connections. It needs no connection for the answer.
    bool canTellAccounts(std::uint16_t port) const {
        if (!environment_.callbacks.accountOf) {
            return false;
        }
        try {
            static_cast<void>(environment_.callbacks.accountOf(0, port));
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    void accept() {
        acceptor_.async_accept([this](const HTTPSConnection::Error& error, tcp::socket socket) {
            if (isStopping_ || !acceptor_.is_open()) {
                return;
            }
            connections_.remove_if([](const auto& known) { return known.expired(); });
            if (error) {
                makeRoom(Request::Sender::Own);
                // Most likely the process is out of descriptors.
                pause_.expires_after(acceptPause);
                pause_.async_wait([this](const HTTPSConnection::Error& cancelled) {
                    if (!cancelled) {
                        accept();
                    }
                });
                return;
            }
            // First, because the rest could throw.
            accept();
            add(std::move(socket));
        });
    }

    void add(tcp::socket socket) {
        const auto sender = senderOf(socket);
        if (connections_.size() >= maxConnections) {
            makeRoom(sender);
        }
        if (connections_.size() >= maxConnections) {
            return;
        }
        const auto connection =
            std::make_shared<HTTPSConnection>(std::move(socket), sender, environment_);
        connections_.push_back(connection);
        connection->start();
    }

    Request::Sender senderOf(const tcp::socket& socket) const {
        using enum Request::Sender;
        if (!knowsAccounts_) {
            return Undetermined;
        }
        try {
            const auto account = environment_.callbacks.accountOf(
                socket.remote_endpoint().port(), socket.local_endpoint().port());
            return account == geteuid() ? Own : Other;
        } catch (const std::exception&) {
            // Closed already, or the process is out of descriptors. A browser can try again.
            return Other;
        }
    }

    /// Closes the oldest connection that is idle, or else the oldest that sends to a client without
    /// a token: first those of other accounts, then the rest, but not for one of another account.
    void makeRoom(Request::Sender sender) {
        const auto isIdle = [](const HTTPSConnection& connection) {
            return connection.isIdle();
        };
        const auto isSending = [](const HTTPSConnection& connection) {
            return connection.isSendingToStranger();
        };
        const auto ofOthers = [](auto isExpendable) {
            return [isExpendable](const HTTPSConnection& connection) {
                return connection.isOfOtherAccount() && isExpendable(connection);
            };
        };
        const bool isDone = closeFirst(ofOthers(isIdle)) || closeFirst(ofOthers(isSending));
        if (!isDone && sender != Request::Sender::Other && !closeFirst(isIdle)) {
            closeFirst(isSending);
        }
    }

    template <typename IsExpendable>
    bool closeFirst(IsExpendable isExpendable) {
        for (auto known = connections_.begin(); known != connections_.end(); ++known) {
            const auto connection = known->lock();
            if (connection && isExpendable(*connection)) {
                connection->close();
                connections_.erase(known);
                return true;
            }
        }
        return false;
    }

    /// A connection that fails, for example for want of memory, does not end the service.
    void runContext() {
        while (true) {
            try {
                context_.run();
                return;
            } catch (const std::exception&) {
                // Its handler, which owned it, is gone.
                continue;
            }
        }
    }

    asio::thread_pool workers_{workers};
    HTTPSConnection::Environment environment_;
    asio::io_context context_{1};
    asio::executor_work_guard<asio::io_context::executor_type> keepsRunning_{
        context_.get_executor()};
    tcp::acceptor acceptor_{context_};
    asio::steady_timer pause_{context_};
    bool isStopping_ = false;
    bool knowsAccounts_ = false;
    /// In the order of arrival.
    std::list<std::weak_ptr<HTTPSConnection>> connections_;
    std::thread thread_;
};

std::uint16_t HTTPSServer::start(std::uint16_t port) {
    assert(!running_);
    auto running = std::make_shared<Running>(authority_, callbacks_);
    const auto bound = running->start(port);
    running_ = std::move(running);
    return bound;
}

void HTTPSServer::stop() {
    if (running_) {
        running_->stop();
        running_.reset();
    }
}

} // namespace orvel::service
