// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/WebAuthenticationSession.h"

#include <memory>
#include <string>
#include <vector>

namespace orvel::test {

/// A session and a simulated browser.
class WebAuthenticationSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual WebAuthenticationSession& session() = 0;
    virtual void destroySession() = 0;
    /// All opened pages.
    [[nodiscard]] virtual std::vector<std::string> pages() = 0;
    /// Makes later opening fail.
    virtual void removeBrowser() = 0;
    /// Redirects the browser to the URL.
    virtual void callBack(const std::string& url) = 0;
    /// Whether any page can call back, so that callbacks are screened.
    [[nodiscard]] virtual bool isOpenToAnyPage() = 0;
};

[[nodiscard]] std::unique_ptr<WebAuthenticationSubject> makeRealWebAuthenticationSession();

} // namespace orvel::test
