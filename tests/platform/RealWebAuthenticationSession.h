// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/WebAuthenticationSession.h"

#include <memory>
#include <string>
#include <vector>

namespace orvel::test {

/// A session, the browser, and its user.
class WebAuthenticationSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual WebAuthenticationSession& session() = 0;
    virtual void destroySession() = 0;
    /// The pages that the browser has opened.
    [[nodiscard]] virtual std::vector<std::string> pages() = 0;
    /// From now on there is no browser.
    virtual void removeBrowser() = 0;
    /// The browser is redirected to the URL.
    virtual void callBack(const std::string& url) = 0;
};

/// This system's.
[[nodiscard]] std::unique_ptr<WebAuthenticationSubject> makeRealWebAuthenticationSession();

} // namespace orvel::test
