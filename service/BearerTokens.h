// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/HTTP.h"

#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace orvel::service {

/// The bearer tokens that open the service. Usable from several threads.
class BearerTokens final {
public:
    /// Without any, every token is accepted.
    explicit BearerTokens(std::vector<std::string> accepted);

    /// From now on the token's session counts as expired.
    void expire(std::string token);

    /// Throws `Refusal` unless the request carries an accepted token.
    void require(const Request& request) const;

private:
    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> accepted_;
    std::set<std::string, std::less<>> expired_;
};

} // namespace orvel::service
