// SPDX-License-Identifier: Apache-2.0
#include "core/TransientFailure.h"

#include <algorithm>

namespace tavrin {

namespace {

bool isTransientCode(int code) {
    const auto& codes = TransientFailure::urlErrorCodes;
    return std::any_of(codes.begin(), codes.end(), [code](URLErrorCode transient) {
        return static_cast<int>(transient) == code;
    });
}

} // namespace

bool TransientFailure::isTransient(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const URLError& failure) {
        return isTransientCode(static_cast<int>(failure.code()));
    } catch (const PlatformError& failure) {
        return failure.domain() == urlErrorDomain && isTransientCode(failure.code());
    } catch (...) {
        return false;
    }
}

bool TransientFailure::isTransient(int httpStatus) {
    return httpStatus == 429 || (httpStatus >= 500 && httpStatus <= 599);
}

} // namespace tavrin
