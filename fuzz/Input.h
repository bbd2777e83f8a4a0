// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Takes values from the bytes of a fuzzer. At the end of the bytes, every value is 0 or empty.
class Input final {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : bytes_(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool isAtEnd() const { return bytes_.empty(); }

    std::uint8_t byte() {
        const std::string_view taken = take(1);
        return taken.empty() ? 0 : static_cast<std::uint8_t>(taken.front());
    }

    /// A number below `count`.
    std::uint8_t below(unsigned count) { return static_cast<std::uint8_t>(byte() % count); }

    /// Little-endian.
    std::int64_t integer(std::size_t width) {
        std::uint64_t value = 0;
        for (std::size_t index = 0; index < width; ++index) {
            value |= std::uint64_t{byte()} << (8 * index);
        }
        return static_cast<std::int64_t>(value);
    }

    /// Bytes after their length.
    std::string_view text() { return take(byte()); }

    std::string_view rest() { return take(bytes_.size()); }

private:
    std::string_view take(std::size_t count) {
        const std::string_view taken = bytes_.substr(0, count);
        bytes_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view bytes_;
};
