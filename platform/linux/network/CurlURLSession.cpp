// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/CurlURLSession.h"

#include "core/Errors.h"
#include "core/OutOfMemory.h"
#include "platform/URLRequests.h"
#include "platform/linux/network/CurlTransfer.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/OpenSSL.h"

#include <climits>
#include <csignal>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>

namespace orvel {

namespace {

using tavrin::URLErrorCode;

/// Holds libcurl's global state while a worker exists.
class CurlLibrary final {
public:
    CurlLibrary() {
        if (Curl::get().globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
            throw tavrin::OutOfMemory();
        }
    }
    ~CurlLibrary() { Curl::get().globalCleanup(); }
    CurlLibrary(const CurlLibrary&) = delete;
    CurlLibrary& operator=(const CurlLibrary&) = delete;
};

/// The error of a request that cannot be sent.
std::optional<tavrin::URLError> refusal(const URLRequest& request) {
    if (!request.url.starts_with("https://")) {
        return urlError(URLErrorCode::UnsupportedURL);
    }
    try {
        Curl::get();
        OpenSSL::get();
    } catch (const tavrin::PlatformError& missing) {
        return tavrin::URLError(URLErrorCode::Unknown, missing.what());
    }
    const std::unique_ptr<CURLU, LazyRelease<&Curl::urlCleanup>> parsed(Curl::get().url());
    if (hasControlCharacter(request.url) ||
        Curl::get().urlSet(parsed.get(), CURLUPART_URL, request.url.c_str(), CURLU_DISALLOW_USER) !=
            CURLUE_OK) {
        return urlError(URLErrorCode::BadURL);
    }
    return headerError(request);
}

} // namespace

/// The thread that runs libcurl.
class CurlURLSession::Worker final {
public:
    /// Borrows the state.
    explicit Worker(State& state);
    /// Ends all exchanges.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void start(std::unique_ptr<CurlTransfer> transfer);
    void cancel(std::uint64_t exchange);

private:
    /// Maps, because moving a transfer from one to the other needs no memory.
    using Transfers = std::map<std::uint64_t, std::unique_ptr<CurlTransfer>>;

    void run();
    /// Returns false when the worker must stop.
    bool handleCommands();
    void finish(CURL* easy, CURLcode code);
    /// For want of memory.
    void fail(std::uint64_t exchange);

    State& state_;
    CurlLibrary library_;
    std::unique_ptr<CURLM, LazyRelease<&Curl::multiCleanup>> multi_;

    std::mutex mutex_;
    Transfers started_;
    std::vector<std::uint64_t> cancelled_;
    bool isStopping_ = false;

    /// Used by the worker thread only.
    Transfers transfers_;
    std::thread thread_;
};

struct CurlURLSession::State {
    explicit State(Trust trust)
        : systemCertificates(std::move(trust.systemCertificates)),
          extraCertificates(trust.extraCertificates) {}

    /// Any thread. Ignored when the exchange has been cancelled.
    void finish(std::uint64_t exchange, URLResult result) {
        // Shared, so that the result is kept if the callback cannot be posted.
        std::shared_ptr<URLResult> kept;
        tavrin::repeatUntilThereIsMemory(
            [&] { kept = std::make_shared<URLResult>(std::move(result)); });
        tavrin::repeatUntilThereIsMemory(
            [&] { callbackContext.post([this, exchange, kept] { complete(exchange, *kept); }); });
    }

    void complete(std::uint64_t exchange, URLResult& result) {
        if (const auto found = completions.extract(exchange); !found.empty()) {
            // The completion may destroy this object.
            found.mapped()(std::move(result));
        } else if (auto* response = std::get_if<URLResponse>(&result)) {
            // The body may contain a token.
            tavrin::wipe(response->body);
        }
    }

    void cancel(std::uint64_t exchange) {
        auto found = completions.extract(exchange);
        if (found.empty()) {
            return;
        }
        callbackContext.post([completion = std::move(found.mapped())] {
            completion(urlError(URLErrorCode::Cancelled));
        });
        if (worker) {
            worker->cancel(exchange);
        }
    }

    const std::optional<std::filesystem::path> systemCertificates;
    const ExtraCertificates extraCertificates;
    /// Those of the exchanges in flight.
    std::map<std::uint64_t, std::function<void(URLResult)>> completions;
    std::uint64_t lastExchange = 0;
    CallbackContext callbackContext;
    /// Created by the first request. Destroyed first: uses the other members.
    std::optional<Worker> worker;
};

class CurlURLSession::CurlTask final : public Task {
public:
    CurlTask(std::weak_ptr<State> state, std::uint64_t exchange)
        : state_(std::move(state)), exchange_(exchange) {}

    void cancel() override {
        if (const auto state = state_.lock()) {
            state->cancel(exchange_);
        }
    }

private:
    std::weak_ptr<State> state_;
    std::uint64_t exchange_;
};

CurlURLSession::CurlURLSession(Trust trust) : state_(std::make_shared<State>(std::move(trust))) {}

CurlURLSession::~CurlURLSession() = default;

std::unique_ptr<URLSession::Task>
CurlURLSession::start(URLRequest request, std::function<void(URLResult)> completion) {
    const std::uint64_t exchange = ++state_->lastExchange;
    state_->completions.emplace(exchange, std::move(completion));
    if (auto error = refusal(request)) {
        wipe(request);
        state_->finish(exchange, std::move(*error));
    } else {
        if (!state_->worker) {
            state_->worker.emplace(*state_);
        }
        state_->worker->start(std::make_unique<CurlTransfer>(
            exchange, std::move(request), state_->systemCertificates, state_->extraCertificates));
    }
    return std::make_unique<CurlTask>(state_, exchange);
}

CurlURLSession::Worker::Worker(State& state) : state_(state), multi_(Curl::get().multiInit()) {
    if (!multi_) {
        throw tavrin::OutOfMemory();
    }
    // The thread inherits the mask, so that other threads handle signals.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

CurlURLSession::Worker::~Worker() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    Curl::get().multiWakeup(multi_.get());
    thread_.join();
}

void CurlURLSession::Worker::start(std::unique_ptr<CurlTransfer> transfer) {
    {
        const std::lock_guard lock(mutex_);
        const std::uint64_t exchange = transfer->exchange();
        started_.emplace(exchange, std::move(transfer));
    }
    Curl::get().multiWakeup(multi_.get());
}

void CurlURLSession::Worker::cancel(std::uint64_t exchange) {
    {
        const std::lock_guard lock(mutex_);
        cancelled_.push_back(exchange);
    }
    Curl::get().multiWakeup(multi_.get());
}

void CurlURLSession::Worker::run() {
    while (handleCommands()) {
        int running = 0;
        Curl::get().multiPerform(multi_.get(), &running);
        int remaining = 0;
        while (const CURLMsg* message = Curl::get().multiInfoRead(multi_.get(), &remaining)) {
            if (message->msg == CURLMSG_DONE) {
                finish(message->easy_handle, message->data.result);
            }
        }
        Curl::get().multiPoll(multi_.get(), nullptr, 0, INT_MAX, nullptr);
    }
    for (const auto& [exchange, transfer] : transfers_) {
        Curl::get().multiRemoveHandle(multi_.get(), transfer->easy());
    }
    transfers_.clear();
}

bool CurlURLSession::Worker::handleCommands() {
    Transfers started;
    std::vector<std::uint64_t> cancelled;
    {
        const std::lock_guard lock(mutex_);
        if (isStopping_) {
            return false;
        }
        started.swap(started_);
        cancelled.swap(cancelled_);
    }
    while (!started.empty()) {
        auto transfer = started.extract(started.begin());
        if (Curl::get().multiAddHandle(multi_.get(), transfer.mapped()->easy()) == CURLM_OK) {
            transfers_.insert(std::move(transfer));
        } else {
            fail(transfer.key());
        }
    }
    for (const std::uint64_t exchange : cancelled) {
        if (const auto found = transfers_.extract(exchange); !found.empty()) {
            Curl::get().multiRemoveHandle(multi_.get(), found.mapped()->easy());
        }
    }
    return true;
}

void CurlURLSession::Worker::finish(CURL* easy, CURLcode code) {
    CurlTransfer* transfer = nullptr;
    Curl::get().easyGetinfo(easy, CURLINFO_PRIVATE, &transfer);
    // This call invalidates the message.
    Curl::get().multiRemoveHandle(multi_.get(), easy);
    const auto own = transfers_.extract(transfer->exchange());
    try {
        state_.finish(own.key(), own.mapped()->takeResult(code));
    } catch (const std::bad_alloc&) {
        fail(own.key());
    }
}

void CurlURLSession::Worker::fail(std::uint64_t exchange) {
    tavrin::repeatUntilThereIsMemory([this, exchange] {
        state_.finish(
            exchange, tavrin::URLError(URLErrorCode::Unknown, tavrin::OutOfMemory().what()));
    });
}

} // namespace orvel
