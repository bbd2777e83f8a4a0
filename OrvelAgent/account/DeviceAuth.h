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

/// Signs in on the product's web site: opens it with a challenge (PKCE, S256), waits for its
/// redirect to our own scheme, and exchanges the code it carries for a custom token.
///
/// A value, copied freely. The browser session is borrowed and must outlive every sign-in; the
/// value itself need not. Main thread.
class DeviceAuth final {
public:
    DeviceAuth(WebAuthenticationSession& session, const Configuration& configuration);

    /// The custom token of the account that the user chose. `api` needs no bearer token.
    ///
    /// Throws `AuthError` when there is no code, also after the user closed the browser's page;
    /// what the client throws when the exchange fails; `tavrin::TaskCancelled` when cancelled.
    [[nodiscard]] QCoro::Task<tavrin::Secret>
    authorize(APIClient api, tavrin::CancellationToken cancellation = {}) const;

    /// Shows the page and gives the URL of its callback, which is not to be trusted. Throws
    /// `AuthError` when there is none, and `tavrin::TaskCancelled` when cancelled.
    [[nodiscard]] QCoro::Task<std::string>
    present(std::string url, tavrin::CancellationToken cancellation = {}) const;

private:
    static QCoro::Task<tavrin::Secret>
    authorizeFrom(DeviceAuth auth, APIClient api, tavrin::CancellationToken cancellation);
    static QCoro::Task<std::string> presentFrom(
        WebAuthenticationSession* session, std::string url, tavrin::CancellationToken cancellation);

    /// Where the user signs in. Throws `AuthError` when that is no URL.
    [[nodiscard]] std::string signInURL(const std::string& verifier) const;

    WebAuthenticationSession* session_;
    std::string webBaseURL_;
    std::string version_;
};

} // namespace orvel
