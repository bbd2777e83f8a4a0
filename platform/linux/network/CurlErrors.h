// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

namespace orvel {

/// libcurl's error values of a failed exchange.
struct CurlFailure {
    /// A `CURLcode`.
    int code = 0;
    /// The `errno` of the failed connection attempt; 0 when there is none.
    long systemError = 0;
    /// OpenSSL's `X509_V_…` result for the server's certificate.
    long verifyResult = 0;
};

[[nodiscard]] tavrin::URLErrorCode urlErrorCode(const CurlFailure& failure);

} // namespace orvel
