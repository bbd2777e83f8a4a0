// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// A network of the test's making. A request takes the next queued answer; when none is left, the
/// handler's; when there is no handler either, "Could not connect to the server."
class FakeURLSession final : public URLSession {
public:
    /// No value leaves the request without an answer until it is cancelled.
    using Answer = std::optional<URLResult>;
    using Handler = std::function<Answer(const URLRequest&)>;

    FakeURLSession();
    ~FakeURLSession() override;

    void enqueue(Answer answer);
    void enqueue(int status, std::string body);
    void enqueue(tavrin::URLErrorCode code);
    void setHandler(Handler handler);

    /// Every request so far, in the order of their start.
    [[nodiscard]] const std::vector<URLRequest>& requests() const { return requests_; }
    /// How many requests have not had their completion called yet.
    [[nodiscard]] std::size_t inFlight() const;

    [[nodiscard]] std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) override;

private:
    class FakeTask;
    class Pending;

    [[nodiscard]] Answer answer(const URLRequest& request);

    std::shared_ptr<Pending> pending_;
    std::deque<Answer> answers_;
    Handler handler_;
    std::vector<URLRequest> requests_;
};

} // namespace orvel::test
