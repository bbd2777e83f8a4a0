// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// A shared library that is loaded when something of it is first needed, and then stays: with all
/// that it brings along, loading it would be a noticeable part of every start of the program.
class LazyLibrary final {
public:
    /// The address of a function, to be assigned to a pointer of the function's type.
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

    /// By the name that the dynamic linker knows it by. Throws `tavrin::PlatformError` when it
    /// cannot be loaded.
    explicit LazyLibrary(const char* name);

    /// Throws `tavrin::PlatformError` when the library has no such function.
    [[nodiscard]] Symbol symbol(const char* name) const;

private:
    void* handle_;
};

} // namespace orvel
