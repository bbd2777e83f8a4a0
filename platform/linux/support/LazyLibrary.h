// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// A shared library that is loaded on first use and never unloaded. Loading it with its
/// dependencies at start-up would noticeably delay every start.
class LazyLibrary final {
public:
    /// A function's address, convertible to a pointer of the function's type.
    struct Symbol {
        template <typename Function>
        operator Function*() const { // NOLINT(google-explicit-constructor): what it is for
            return reinterpret_cast<Function*>(address);
        }

        void* address;
    };

    /// The dynamic linker's name of the library. Throws `tavrin::PlatformError` when it cannot be
    /// loaded.
    explicit LazyLibrary(const char* name);

    /// Throws `tavrin::PlatformError` when the library has no such function.
    [[nodiscard]] Symbol symbol(const char* name) const;

private:
    void* handle_;
};

/// A deleter for `std::unique_ptr` that calls this function of a lazily loaded library.
template <auto function>
struct LazyRelease {
    template <typename T>
    void operator()(T* object) const {
        release(function, object);
    }

private:
    template <typename Library, typename Function, typename T>
    static void release(Function Library::*member, T* object) {
        (Library::get().*member)(object);
    }
};

} // namespace orvel
