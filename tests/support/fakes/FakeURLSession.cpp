// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fakes/FakeURLSession.h"

#include "core/Errors.h"

#include <QObject>

#include <cstdint>
#include <map>
#include <utility>

namespace orvel::test {

/// The exchanges whose completion has not been called.
class FakeURLSession::Pending final {
public:
    std::uint64_t add(std::function<void(URLResult)> completion) {
        exchanges_.emplace(++last_, Exchange{std::move(completion), nullptr});
        return last_;
    }

    void limit(std::uint64_t exchange, Clock& clock, tavrin::Seconds timeout) {
        exchanges_.at(exchange).timer = clock.schedule(timeout, [this, exchange] {
            finish(exchange, urlError(tavrin::URLErrorCode::TimedOut));
        });
    }

    /// Completes the exchange from the event loop, unless it gets another result before.
    void finish(std::uint64_t exchange, URLResult result) {
        QMetaObject::invokeMethod(
            &callbackContext_,
            [this, exchange, result = std::move(result)] {
                // The completion may destroy this object.
                if (const auto found = exchanges_.extract(exchange); !found.empty()) {
                    found.mapped().completion(result);
                }
            },
            Qt::QueuedConnection);
    }

    void finishAll(tavrin::URLErrorCode code) {
        for (auto& [exchange, pending] : exchanges_) {
            pending.timer.reset();
            finish(exchange, urlError(code));
        }
    }

    void cancel(std::uint64_t exchange) {
        if (auto found = exchanges_.extract(exchange); !found.empty()) {
            finish(
                add(std::move(found.mapped().completion)),
                urlError(tavrin::URLErrorCode::Cancelled));
        }
    }

    [[nodiscard]] std::size_t count() const { return exchanges_.size(); }

private:
    struct Exchange {
        std::function<void(URLResult)> completion;
        std::unique_ptr<Clock::Timer> timer;
    };

    std::uint64_t last_ = 0;
    std::map<std::uint64_t, Exchange> exchanges_;
    /// Destroyed first, which drops the calls it has queued.
    QObject callbackContext_;
};

class FakeURLSession::FakeTask final : public Task {
public:
    FakeTask(std::weak_ptr<Pending> pending, std::uint64_t exchange)
        : pending_(std::move(pending)), exchange_(exchange) {}

    void cancel() override {
        if (const auto pending = pending_.lock()) {
            pending->cancel(exchange_);
        }
    }

private:
    std::weak_ptr<Pending> pending_;
    std::uint64_t exchange_;
};

FakeURLSession::FakeURLSession() : pending_(std::make_shared<Pending>()) {}

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

void FakeURLSession::failPending(tavrin::URLErrorCode code) {
    pending_->finishAll(code);
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
    if (result) {
        pending_->finish(exchange, std::move(*result));
    } else if (clock_ != nullptr) {
        pending_->limit(exchange, *clock_, request.timeout);
    }
    requests_.push_back(std::move(request));
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
