// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/DeviceAuth.h"
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/base/Logger.h"

namespace orvel {

/// One sign-in through the browser and the identity provider. Must not outlive the objects
/// to which the constructor's arguments refer. Main thread.
class SignInAttempt final {
public:
    /// `api` may be a client without a bearer token.
    SignInAttempt(DeviceAuth deviceAuth, FirebaseIdentity identity, APIClient api, Logger log);

    /// Throws the errors of `DeviceAuth::authorize` and `FirebaseIdentity::signInWithCustomToken`,
    /// and `tavrin::TaskCancelled` if cancelled.
    static QCoro::Task<FirebaseIdentity::Tokens>
    run(SignInAttempt attempt, tavrin::CancellationToken cancellation);

private:
    DeviceAuth deviceAuth_;
    FirebaseIdentity identity_;
    APIClient api_;
    Logger log_;
};

} // namespace orvel
