// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <utility>

namespace tavrin {

/// Owns a file descriptor and closes it.
class FileDescriptor final {
public:
    FileDescriptor() = default;
    /// Takes the result of `open()` or similar. A negative value means no descriptor.
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() {
        if (isOpen()) {
            ::close(descriptor_);
        }
    }

    /// Passes the ownership to the caller.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int get() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

} // namespace tavrin
