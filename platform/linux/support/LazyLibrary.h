// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// A shared library that is loaded on first use and never unloaded. Loading it with its
/// dependencies at start-up would noticeably delay every start.
class LazyLibrary final {
public:
    /// A function's address, convertible to a pointer of the function's type.
    class Symbol {
    public:
        explicit Symbol(void* address) : address_(address) {}

        template <typename Function>
        operator Function*() const { // NOLINT(google-explicit-constructor): what it is for
            return reinterpret_cast<Function*>(address_);
        }

    private:
        void* address_;
    };

    /// The dynamic linker's name of the library. Throws `tavrin::PlatformError` when it cannot be
    /// loaded.
    explicit LazyLibrary(const char* name);

    /// Throws `tavrin::PlatformError` when the library has no such function.
    [[nodiscard]] Symbol symbol(const char* name) const;

private:
    void* handle_;
};

} // namespace orvel
