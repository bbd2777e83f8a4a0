// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/network/APIClient.h"
#include "core/CancellationToken.h"
#include "core/Secret.h"

#include <QCoroTask>

#include <string>

namespace orvel {

class Configuration;
class WebAuthenticationSession;

/// Signs in on the product's web site. Opens it with a challenge (PKCE, S256), waits for the
/// redirect to our URL scheme, and exchanges the code in it for a custom token.
///
/// Copyable. Borrows the browser session, which must outlive every sign-in. The copy itself need
/// not. Main thread.
class DeviceAuth final {
public:
    DeviceAuth(WebAuthenticationSession& session, const Configuration& configuration);

    /// Returns the custom token of the user's account. `api` needs no bearer token.
    ///
    /// Throws `AuthError` if there is no code, for example because the user closed the page, the
    /// errors of `APIClient::send`, and `tavrin::TaskCancelled` if cancelled.
    [[nodiscard]] QCoro::Task<tavrin::Secret>
    authorize(APIClient api, tavrin::CancellationToken cancellation = {}) const;

    /// Opens the page and returns its callback URL, which is untrusted. Throws `AuthError` if there
    /// is none, and `tavrin::TaskCancelled` if cancelled.
    [[nodiscard]] QCoro::Task<std::string>
    present(std::string url, tavrin::CancellationToken cancellation = {}) const;

private:
    static QCoro::Task<tavrin::Secret>
    authorizeFrom(DeviceAuth auth, APIClient api, tavrin::CancellationToken cancellation);
    static QCoro::Task<std::string> presentFrom(
        WebAuthenticationSession* session, std::string url, tavrin::CancellationToken cancellation);

    /// Throws `AuthError` if the result is not a URL.
    [[nodiscard]] std::string signInURL(const std::string& verifier) const;

    WebAuthenticationSession* session_;
    std::string webBaseURL_;
    std::string version_;
};

} // namespace orvel
