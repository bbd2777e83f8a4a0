// SPDX-License-Identifier: Apache-2.0
//
// The calls that allocate memory, while the program's `main` runs.
#include "tests/support/linux/fault-at-call/Arrival.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

// The functions of the C library, and those of the address sanitizer where it is loaded.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* bytes, std::size_t size) noexcept;
void* __libc_memalign(std::size_t alignment, std::size_t size) noexcept;
__attribute__((weak)) void* __interceptor_malloc(std::size_t size) noexcept;
__attribute__((weak)) void* __interceptor_calloc(std::size_t count, std::size_t size) noexcept;
__attribute__((weak)) void* __interceptor_realloc(void* bytes, std::size_t size) noexcept;
__attribute__((weak)) void*
__interceptor_memalign(std::size_t alignment, std::size_t size) noexcept;
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

using orvel::test::arrive;
using orvel::test::CallKind;
using orvel::test::isInMain;

bool fails() {
    return isInMain() && arrive(CallKind::Allocate).fails;
}

void* allocate(std::size_t size) noexcept {
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

void* allocateAligned(std::size_t alignment, std::size_t size) noexcept {
    return __interceptor_memalign != nullptr ? __interceptor_memalign(alignment, size)
                                             : __libc_memalign(alignment, size);
}

using New = void* (*)(std::size_t);

/// `name` is the name of the operator in libraries. The sanitizer has its own operators.
void* create(std::size_t size, const char* name) {
    if (fails()) {
        // What the standard library does: the handler may free memory, and then it tries again.
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) {
            throw std::bad_alloc();
        }
        handler();
    }
    if (__interceptor_malloc != nullptr) {
        return reinterpret_cast<New>(dlsym(RTLD_NEXT, name))(size);
    }
    void* const bytes = __libc_malloc(size);
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    return bytes;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return fails() ? nullptr : allocate(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    if (fails()) {
        return nullptr;
    }
    return __interceptor_calloc != nullptr ? __interceptor_calloc(count, size)
                                           : __libc_calloc(count, size);
}

void* realloc(void* bytes, std::size_t size) noexcept {
    // A size of 0 frees the memory.
    if (size > 0 && fails()) {
        return nullptr;
    }
    return __interceptor_realloc != nullptr ? __interceptor_realloc(bytes, size)
                                            : __libc_realloc(bytes, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return fails() ? nullptr : allocateAligned(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return memalign(alignment, size);
}

int posix_memalign(void** bytes, std::size_t alignment, std::size_t size) noexcept {
    if (fails()) {
        return ENOMEM;
    }
    void* const allocated = allocateAligned(alignment, size);
    if (allocated == nullptr) {
        return ENOMEM;
    }
    *bytes = allocated;
    return 0;
}

} // extern "C"

void* operator new(std::size_t size) {
    return create(size, "_Znwm");
}

void* operator new[](std::size_t size) {
    return create(size, "_Znam");
}
