// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealWebAuthenticationSession.h"

#include "platform/linux/signin/BrowserAuthenticationSession.h"
#include "tests/platform/linux/signin/LoopbackClient.h"
#include "tests/platform/linux/signin/SignInBusCalls.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <functional>

namespace orvel::test {

namespace {

class BrowserSubject final : public WebAuthenticationSubject {
public:
    WebAuthenticationSession& session() override { return *session_; }
    void destroySession() override { session_.reset(); }
    /// The browser opens each address once, and is redirected to the page.
    std::vector<std::string> pages() override {
        while (pages_.size() < workspace_.openedURLs.size()) {
            const std::string& url = workspace_.openedURLs[pages_.size()];
            pages_.emplace_back();
            pages_.back() = LoopbackClient::location(LoopbackClient::visit(url));
        }
        return pages_;
    }
    void removeBrowser() override {
        workspace_.openError = tavrin::PlatformError("test", 1, "There is no browser.");
    }
    void callBack(const std::string& url) override { orvel::test::callBack(url); }
    bool isOpenToAnyPage() override { return true; }

private:
    FakeWorkspace workspace_;
    std::vector<std::string> pages_;
    ManualClock clock_;
    RecordingLogStore log_;
    std::unique_ptr<WebAuthenticationSession> session_ =
        std::make_unique<BrowserAuthenticationSession>(
            workspace_, clock_, log_, [](const std::function<void()>& ready) { ready(); });
};

} // namespace

std::unique_ptr<WebAuthenticationSubject> makeRealWebAuthenticationSession() {
    return std::make_unique<BrowserSubject>();
}

} // namespace orvel::test
