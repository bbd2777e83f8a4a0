// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace orvel {

/// A random number generator (SplitMix64) with the same results for every compiler and library. The
/// distributions of the standard library differ between implementations. The slight bias of
/// `below()` does not matter here.
class SampleRandom final {
public:
    /// Each pair gives an independent sequence. `stream` is typically an index or a row id.
    SampleRandom(std::uint64_t seed, std::uint64_t stream)
        : state_(mixed(seed ^ mixed(stream + increment))) {}

    std::uint64_t next() { return mixed(state_ += increment); }

    /// From 0 to `bound` - 1. `bound` must be at least 1.
    std::size_t below(std::size_t bound) { return next() % bound; }

    bool chance(double probability) {
        return static_cast<double>(next() >> 11U) * 0x1p-53 < probability;
    }

    template <typename T, std::size_t size>
    const T& pick(const std::array<T, size>& choices) {
        return choices[below(size)];
    }

    template <typename T>
    const T& pick(std::span<const T> choices) {
        return choices[below(choices.size())];
    }

private:
    static constexpr std::uint64_t increment = 0x9E3779B97F4A7C15U;

    static std::uint64_t mixed(std::uint64_t value) {
        value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
        value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
        return value ^ (value >> 31U);
    }

    std::uint64_t state_;
};

} // namespace orvel
