// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/fakes/FakeURLSession.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// The account's service and the identity provider, as the session's handler: takes everything, and
/// keeps what it gets. Answers of the test's own can be put in place of the true ones.
class FakeService final {
public:
    static constexpr std::string_view digestPath = "/api/v1/context/handle-digest";
    static constexpr std::string_view ingestPath = "/api/v1/context/ingest";
    static constexpr std::string_view diagnosticsPath = "/api/v1/context/diagnostics";
    static constexpr std::string_view profilePath = "/api/v1/profile";
    static constexpr std::string_view deviceTokenPath = "/api/v1/auth/device/token";
    static constexpr std::string_view customTokenPath = "accounts:signInWithCustomToken";
    static constexpr std::string_view refreshPath = "/v1/token";

    /// Takes the session's handler. Must outlive the session's use.
    explicit FakeService(FakeURLSession& session);
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// The handles that the account knows.
    std::vector<std::string> hints{"4155550134"};

    /// From now on requests to that path get this answer; none leaves them waiting.
    void setAnswer(std::string_view path, FakeURLSession::Answer answer);
    void setAnswer(std::string_view path, int status, std::string body = {});
    /// The true answer again.
    void resetAnswer(std::string_view path);

    [[nodiscard]] std::size_t requestCount(std::string_view path) const;
    /// How many of these have no answer and are not cancelled; of all paths.
    [[nodiscard]] std::size_t inFlight() const { return session_.inFlight(); }

    /// The guids of all messages taken, in their order, each as often as it came.
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
