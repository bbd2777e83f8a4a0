// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/SignInAttempt.h"

#include <utility>

namespace orvel {

SignInAttempt::SignInAttempt(
    DeviceAuth deviceAuth, FirebaseIdentity identity, APIClient api, Logger log)
    : deviceAuth_(std::move(deviceAuth)),
      identity_(std::move(identity)),
      api_(std::move(api)),
      log_(std::move(log)) {}

QCoro::Task<FirebaseIdentity::Tokens>
SignInAttempt::run(SignInAttempt attempt, tavrin::CancellationToken cancellation) {
    tavrin::Secret customToken =
        co_await attempt.deviceAuth_.authorize(std::move(attempt.api_), cancellation);
    cancellation.throwIfCancelled();
    attempt.log_.log("sign-in: got custom token, exchanging for an ID token");
    FirebaseIdentity::Tokens tokens =
        co_await attempt.identity_.signInWithCustomToken(std::move(customToken), cancellation);
    cancellation.throwIfCancelled();
    co_return tokens;
}

} // namespace orvel
