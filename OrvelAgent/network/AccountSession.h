// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/network/APIClient.h"
#include "core/CancellationToken.h"

#include <string>

namespace orvel {

/// One sign-in, from its start to the sign-out. It provides no token of an earlier or later one.
struct AccountSession {
    /// Identifies the account at its service. Empty if unknown.
    std::string account;
    /// Cancelled when the sign-in ends.
    tavrin::CancellationToken ended;
    /// Throws `TokenUnavailable` if the token cannot be refreshed at the moment, and
    /// `tavrin::TaskCancelled` after the end.
    APIClient::TokenProvider tokenProvider;
    APIClient::SessionExpiredHandler onSessionExpired;
};

} // namespace orvel
