// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTPSServer.h"

#include "service/http/CertificateAuthority.h"
#include "tests/service/Client.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {
namespace {

using service::CertificateAuthority;
using service::HTTPSServer;
using service::Reply;

/// Keeps the process out of file descriptors while it exists.
class NoMoreDescriptors final {
public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = 256;
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int copy = dup(STDERR_FILENO); copy >= 0; copy = dup(STDERR_FILENO)) {
            copies_.push_back(copy);
        }
    }
    ~NoMoreDescriptors() {
        for (const int copy : copies_) {
            close(copy);
        }
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit before_{};
    std::vector<int> copies_;
};

} // namespace

TEST(HTTPSServerTest, ClosesAConnectionToBeResetEvenWithoutFreeDescriptors) {
    const TemporaryDirectory folder;
    const CertificateAuthority authority(folder.path(), std::chrono::system_clock::now());
    std::optional<NoMoreDescriptors> none;
    HTTPSServer server(authority, [&none](const service::Request&) {
        none.emplace();
        Reply reply;
        reply.body = "{}";
        reply.delivery = Reply::Delivery::Reset;
        return reply;
    });
    const std::uint16_t port = server.start(0);
    const Client client{"https://127.0.0.1:" + std::to_string(port), authority.certificateFile()};

    const ClientReply reply = client.get("/");
    none.reset();
    server.stop();

    EXPECT_NE(reply.outcome, CURLE_OK);
    EXPECT_NE(reply.outcome, CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.body, "");
}

} // namespace orvel::test
