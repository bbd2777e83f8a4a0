// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace orvel {

/// There is no bearer token at the moment, so the request was not sent. A later attempt may
/// succeed.
class TokenUnavailable final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace orvel
