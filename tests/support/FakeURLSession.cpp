// SPDX-License-Identifier: Apache-2.0
#include "tests/support/FakeURLSession.h"

#include "platform/linux/CurlErrors.h"
#include "platform/linux/PendingExchanges.h"

#include <cstdint>
#include <utility>

namespace orvel::test {

class FakeURLSession::FakeTask final : public Task {
public:
    FakeTask(std::weak_ptr<PendingExchanges> pending, std::uint64_t exchange)
        : pending_(std::move(pending)), exchange_(exchange) {}

    void cancel() override {
        if (const auto pending = pending_.lock()) {
            pending->cancel(exchange_);
        }
    }

private:
    std::weak_ptr<PendingExchanges> pending_;
    std::uint64_t exchange_;
};

FakeURLSession::FakeURLSession() : pending_(std::make_shared<PendingExchanges>()) {}

FakeURLSession::~FakeURLSession() = default;

void FakeURLSession::enqueue(Answer answer) {
    answers_.push_back(std::move(answer));
}

void FakeURLSession::enqueue(int status, std::string body) {
    enqueue(URLResponse{status, std::move(body)});
}

void FakeURLSession::enqueue(tavrin::URLErrorCode code) {
    enqueue(urlError(code));
}

void FakeURLSession::setHandler(Handler handler) {
    handler_ = std::move(handler);
}

std::size_t FakeURLSession::inFlight() const {
    return pending_->count();
}

std::unique_ptr<URLSession::Task>
FakeURLSession::start(URLRequest request, std::function<void(URLResult)> completion) {
    const std::uint64_t exchange = pending_->add(std::move(completion));
    Answer result = answer(request);
    if (auto* response = result ? std::get_if<URLResponse>(&*result) : nullptr;
        response != nullptr && response->status == 200 && request.receiver) {
        if (!request.receiver(std::exchange(response->body, {}))) {
            result = urlError(tavrin::URLErrorCode::DataLengthExceedsMaximum);
        }
    }
    requests_.push_back(std::move(request));
    if (result) {
        pending_->finish(exchange, std::move(*result));
    }
    return std::make_unique<FakeTask>(pending_, exchange);
}

FakeURLSession::Answer FakeURLSession::answer(const URLRequest& request) {
    if (!request.url.starts_with("https://")) {
        return urlError(tavrin::URLErrorCode::UnsupportedURL);
    }
    if (!answers_.empty()) {
        Answer next = std::move(answers_.front());
        answers_.pop_front();
        return next;
    }
    return handler_ ? handler_(request) : urlError(tavrin::URLErrorCode::CannotConnectToHost);
}

} // namespace orvel::test
