// SPDX-License-Identifier: Apache-2.0
#include "tests/support/FakeURLSession.h"

#include <utility>

namespace orvel::test {

namespace {

URLResult failure(tavrin::URLErrorCode code, std::string description) {
    return tavrin::URLError(code, std::move(description));
}

} // namespace

class FakeURLSession::FakeTask final : public Task {
public:
    FakeTask(std::weak_ptr<State> state, std::uint64_t id) : state_(std::move(state)), id_(id) {}

    void cancel() override {
        if (const auto state = state_.lock()) {
            state->cancel(id_);
        }
    }

private:
    std::weak_ptr<State> state_;
    std::uint64_t id_;
};

FakeURLSession::FakeURLSession() : state_(std::make_shared<State>()) {}

FakeURLSession::~FakeURLSession() = default;

void FakeURLSession::enqueue(Answer answer) {
    answers_.push_back(std::move(answer));
}

void FakeURLSession::enqueue(int status, std::string body) {
    enqueue(URLResponse{status, std::move(body)});
}

void FakeURLSession::enqueue(tavrin::URLErrorCode code) {
    enqueue(failure(code, "The fake network failed."));
}

void FakeURLSession::setHandler(Handler handler) {
    handler_ = std::move(handler);
}

std::size_t FakeURLSession::inFlight() const {
    return state_->completions.size();
}

std::unique_ptr<URLSession::Task>
FakeURLSession::start(URLRequest request, std::function<void(URLResult)> completion) {
    const std::uint64_t id = requests_.size();
    state_->completions.emplace(id, std::move(completion));
    Answer result = answer(request);
    requests_.push_back(std::move(request));
    if (result) {
        state_->deliver(id, std::move(*result));
    }
    return std::make_unique<FakeTask>(state_, id);
}

FakeURLSession::Answer FakeURLSession::answer(const URLRequest& request) {
    if (!request.url.starts_with("https://")) {
        return failure(tavrin::URLErrorCode::UnsupportedURL, "The URL is not supported.");
    }
    if (!answers_.empty()) {
        Answer next = std::move(answers_.front());
        answers_.pop_front();
        return next;
    }
    if (handler_) {
        return handler_(request);
    }
    return failure(tavrin::URLErrorCode::CannotConnectToHost, "Could not connect to the server.");
}

void FakeURLSession::State::deliver(std::uint64_t id, URLResult result) {
    QMetaObject::invokeMethod(
        &context,
        [this, id, result = std::move(result)] {
            if (const auto completion = completions.extract(id); !completion.empty()) {
                completion.mapped()(result);
            }
        },
        Qt::QueuedConnection);
}

void FakeURLSession::State::cancel(std::uint64_t id) {
    auto completion = completions.extract(id);
    if (completion.empty()) {
        return;
    }
    QMetaObject::invokeMethod(
        &context,
        [complete = std::move(completion.mapped())] {
            complete(failure(tavrin::URLErrorCode::Cancelled, "The request was cancelled."));
        },
        Qt::QueuedConnection);
}

} // namespace orvel::test
