// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"

#include <system_error>

namespace tavrin {

PlatformError PlatformError::fromErrno(int code, std::string_view doing) {
    return {
        std::string(posixErrorDomain),
        code,
        std::string(doing) + ": " + std::generic_category().message(code)};
}

std::string description(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "An unknown error occurred.";
    }
}

} // namespace tavrin
