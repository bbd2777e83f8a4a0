// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <utility>

namespace tavrin {

/// Owns an open file of the system, and closes it.
class FileDescriptor final {
public:
    FileDescriptor() = default;
    /// Takes what `open()` and its like return; below zero is none.
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

    /// For who closes it himself.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int get() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

} // namespace tavrin
