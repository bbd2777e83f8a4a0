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

/// A shared storage that wipes its memory, for JSON trees that contain tokens.
[[nodiscard]] boost::json::storage_ptr wipingStorage();

/// Parses into `wipingStorage()`. Throws `tavrin::JSONDecodingError`, without any part of the text,
/// if the text is not JSON.
[[nodiscard]] boost::json::value parseSecretJSON(std::string_view text);

/// Serializes the tree and wipes all temporary copies of the text.
[[nodiscard]] std::string serializeSecretJSON(const boost::json::value& tree);

} // namespace orvel
