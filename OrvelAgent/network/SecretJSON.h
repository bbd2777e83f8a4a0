// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/json/memory_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

/// A memory resource that overwrites bytes when they are deallocated.
class WipingMemory final : public boost::json::memory_resource {
public:
    explicit WipingMemory(boost::json::storage_ptr upstream = {});

private:
    // The library defines the names.
    // NOLINTBEGIN(readability-identifier-naming)
    void* do_allocate(std::size_t size, std::size_t alignment) override;
    void do_deallocate(void* bytes, std::size_t size, std::size_t alignment) override;
    [[nodiscard]] bool
    do_is_equal(const boost::json::memory_resource& other) const noexcept override;
    // NOLINTEND(readability-identifier-naming)

    boost::json::storage_ptr upstream_;
};

/// A memory resource with a limit on the bytes that are in use. Throws `std::bad_alloc` beyond it.
class LimitedMemory final : public boost::json::memory_resource {
public:
    explicit LimitedMemory(std::size_t limit, boost::json::storage_ptr upstream = {});

private:
    // The library defines the names.
    // NOLINTBEGIN(readability-identifier-naming)
    void* do_allocate(std::size_t size, std::size_t alignment) override;
    void do_deallocate(void* bytes, std::size_t size, std::size_t alignment) override;
    [[nodiscard]] bool
    do_is_equal(const boost::json::memory_resource& other) const noexcept override;
    // NOLINTEND(readability-identifier-naming)

    std::size_t left_;
    boost::json::storage_ptr upstream_;
};

/// A shared storage that wipes its memory, for JSON trees that contain tokens.
[[nodiscard]] boost::json::storage_ptr wipingStorage();

/// How deeply arrays and objects may be nested in parsed text.
inline constexpr std::size_t maximumJSONDepth = 32;

/// The most memory that parsing a text of this size may use.
[[nodiscard]] constexpr std::size_t maximumJSONMemory(std::size_t textSize) {
    // Enough for the longest list of handles. Only many tiny values need more, and no reply has
    // them.
    constexpr std::size_t base = std::size_t{1} << 20U;
    constexpr std::size_t perByte = 6;
    return base + perByte * textSize;
}

/// Parses into memory that is wiped and limited. Skips a byte order mark. Throws
/// `tavrin::JSONDecodingError`, without any part of the text, if the text is not JSON, nested too
/// deeply or needs too much memory. `upstream` provides the memory.
[[nodiscard]] boost::json::value
parseSecretJSON(std::string_view text, boost::json::storage_ptr upstream = {});

/// Serializes the tree and wipes all temporary copies of the text.
[[nodiscard]] std::string serializeSecretJSON(const boost::json::value& tree);

} // namespace orvel
