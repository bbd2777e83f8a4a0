// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/WebAuthenticationSession.h"

#include <QObject>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

/// A browser with a simulated user. An attempt ends with the user's action, or with `finish()`.
class FakeWebAuthenticationSession final : public WebAuthenticationSession {
public:
    struct Page {
        std::string url;
        std::string callbackScheme;
    };

    /// The user's immediate action on a page. No value leaves the attempt pending.
    std::function<std::optional<Outcome>(const Page&)> user;
    /// Whether any page can call back, as on Linux: callbacks are screened.
    bool isOpenToAnyPage = false;

    FakeWebAuthenticationSession() = default;
    ~FakeWebAuthenticationSession() override { waiting_.reset(); }

    /// All opened pages.
    [[nodiscard]] const std::vector<Page>& pages() const { return pages_; }

    [[nodiscard]] bool isWaiting() const { return waiting_ != nullptr; }

    /// Ends the pending attempt, if any, unless the outcome is a callback that must be ignored.
    void finish(Outcome outcome) {
        const auto* callback = std::get_if<std::string>(&outcome);
        if (waiting_ && isOpenToAnyPage && callback != nullptr) {
            std::optional<Outcome> screened = screen_(*callback);
            if (!screened) {
                return;
            }
            outcome = *std::move(screened);
        }
        if (const auto attempt = std::exchange(waiting_, nullptr)) {
            settle(attempt, std::move(outcome));
        }
    }

    std::unique_ptr<Attempt> start(
        std::string url,
        std::string callbackScheme,
        Screen screen,
        std::function<void(Outcome)> completion) override {
        finish(Cancelled());
        pages_.push_back({std::move(url), std::move(callbackScheme)});
        screen_ = std::move(screen);
        waiting_ = std::make_shared<Completion>(std::move(completion));
        auto attempt = std::make_unique<FakeAttempt>(*this, waiting_);
        if (std::optional<Outcome> outcome = user ? user(pages_.back()) : std::nullopt) {
            finish(*std::move(outcome));
        }
        return attempt;
    }

private:
    using Completion = std::function<void(Outcome)>;

    class FakeAttempt final : public Attempt {
    public:
        FakeAttempt(FakeWebAuthenticationSession& session, std::weak_ptr<Completion> completion)
            : session_(session), completion_(std::move(completion)) {}

        void cancel() override {
            const auto completion = completion_.lock();
            if (completion && completion == session_.waiting_) {
                session_.finish(Cancelled());
            }
        }

    private:
        FakeWebAuthenticationSession& session_;
        std::weak_ptr<Completion> completion_;
    };

    void settle(const std::shared_ptr<Completion>& completion, Outcome outcome) {
        QMetaObject::invokeMethod(
            &callbackContext_,
            [completion, outcome = std::move(outcome)] { (*completion)(outcome); },
            Qt::QueuedConnection);
    }

    std::vector<Page> pages_;
    Screen screen_;
    std::shared_ptr<Completion> waiting_;
    QObject callbackContext_;
};

} // namespace orvel::test
