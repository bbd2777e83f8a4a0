// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/URLSession.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// A network controlled by the test. A request gets the next queued answer, or else the handler's
/// answer, or else the error "Could not connect to the server."
class FakeURLSession final : public URLSession {
public:
    /// No value leaves the request pending until it is cancelled, or until its timeout by the clock
    /// of `setClock`.
    using Answer = std::optional<URLResult>;
    using Handler = std::function<Answer(const URLRequest&)>;

    FakeURLSession();
    ~FakeURLSession() override;

    void enqueue(Answer answer);
    void enqueue(int status, std::string body);
    void enqueue(tavrin::URLErrorCode code);
    void setHandler(Handler handler);
    /// From now on, pending requests time out by this clock. Without a clock they never do.
    void setClock(Clock& clock) { clock_ = &clock; }

    /// Ends all pending requests with this error.
    void failPending(tavrin::URLErrorCode code);

    /// All requests in the order of their start.
    [[nodiscard]] const std::vector<URLRequest>& requests() const { return requests_; }
    void forgetRequests() {
        requests_.clear();
        requests_.shrink_to_fit();
    }
    /// The number of requests whose completion has not been called.
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
    Clock* clock_ = nullptr;
    std::vector<URLRequest> requests_;
};

} // namespace orvel::test
