// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/LazyLibrary.h"

#include "core/Errors.h"

#include <dlfcn.h>

#include <cerrno>
#include <string>

namespace orvel {

namespace {

/// The dynamic linker's last error.
tavrin::PlatformError linkerError() {
    const char* const reason = dlerror();
    return {
        std::string(tavrin::posixErrorDomain),
        ELIBACC,
        std::string("A library of the system is missing: ") +
            (reason == nullptr ? "unknown" : reason)};
}

} // namespace

LazyLibrary::LazyLibrary(const char* name) : handle_(dlopen(name, RTLD_LAZY | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        throw linkerError();
    }
}

LazyLibrary::Symbol LazyLibrary::symbol(const char* name) const {
    void* const address = dlsym(handle_, name);
    if (address == nullptr) {
        throw linkerError();
    }
    return {address};
}

} // namespace orvel
