// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/ResumeOnce.h"

#include <utility>

namespace orvel {

ResumeOnce::ResumeOnce(Continuation continuation) : continuation_(std::move(continuation)) {}

void ResumeOnce::succeed(std::string url) {
    resume(std::move(url));
}

void ResumeOnce::fail(std::exception_ptr error) {
    resume(std::move(error));
}

void ResumeOnce::resume(Outcome outcome) {
    Continuation continuation;
    {
        const std::lock_guard guard(lock_);
        continuation = std::exchange(continuation_, nullptr);
    }
    if (continuation) {
        continuation(std::move(outcome));
    }
}

} // namespace orvel
