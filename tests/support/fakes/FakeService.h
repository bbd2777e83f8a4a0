// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/fakes/FakeURLSession.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// The service and the identity provider, as the session's handler. It accepts every request and
/// stores the messages. Tests can replace its replies.
class FakeService final {
public:
    static constexpr std::string_view digestPath = "/api/v1/context/handle-digest";
    static constexpr std::string_view ingestPath = "/api/v1/context/ingest";
    static constexpr std::string_view diagnosticsPath = "/api/v1/context/diagnostics";
    static constexpr std::string_view profilePath = "/api/v1/profile";
    static constexpr std::string_view deviceTokenPath = "/api/v1/auth/device/token";
    static constexpr std::string_view customTokenPath = "accounts:signInWithCustomToken";
    static constexpr std::string_view refreshPath = "/v1/token";

    /// Sets the session's handler. Must outlive all requests.
    explicit FakeService(FakeURLSession& session);
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// The handles known to the account.
    std::vector<std::string> hints{"4155550134"};

    /// Answers all further requests to the path. No value leaves them waiting.
    void setAnswer(std::string_view path, FakeURLSession::Answer answer);
    void setAnswer(std::string_view path, int status, std::string body = {});
    /// Restores the normal reply.
    void resetAnswer(std::string_view path);

    [[nodiscard]] std::size_t requestCount(std::string_view path) const;
    /// The number of pending requests of all paths.
    [[nodiscard]] std::size_t inFlight() const { return session_.inFlight(); }

    /// The guids of all accepted messages, in order, with duplicates.
    [[nodiscard]] const std::vector<std::string>& guids() const { return guids_; }
    /// The lines of the last diagnostics.
    [[nodiscard]] const std::vector<std::string>& diagnostics() const { return diagnostics_; }

private:
    [[nodiscard]] FakeURLSession::Answer answer(const URLRequest& request);
    [[nodiscard]] std::string trueAnswer(const URLRequest& request);

    FakeURLSession& session_;
    std::map<std::string, FakeURLSession::Answer, std::less<>> answers_;
    std::vector<std::string> guids_;
    std::vector<std::string> diagnostics_;
};

} // namespace orvel::test
