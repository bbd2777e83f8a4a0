// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/json/memory_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

/// Memory whose bytes are overwritten when they are given back.
class WipingMemory final : public boost::json::memory_resource {
public:
    explicit WipingMemory(boost::json::storage_ptr upstream = {});

private:
    // The names are the library's.
    // NOLINTBEGIN(readability-identifier-naming)
    void* do_allocate(std::size_t size, std::size_t alignment) override;
    void do_deallocate(void* bytes, std::size_t size, std::size_t alignment) override;
    [[nodiscard]] bool
    do_is_equal(const boost::json::memory_resource& other) const noexcept override;
    // NOLINTEND(readability-identifier-naming)

    boost::json::storage_ptr upstream_;
};

/// For JSON trees that hold tokens: such a tree leaves nothing behind. Shared by its users.
[[nodiscard]] boost::json::storage_ptr wipingStorage();

/// A tree that leaves nothing behind. Throws `tavrin::JSONDecodingError` when the text is no JSON;
/// nothing of the text is in it.
[[nodiscard]] boost::json::value parseSecretJSON(std::string_view text);

/// The tree as text, with no copies of parts of it left in memory given back.
[[nodiscard]] std::string serializeSecretJSON(const boost::json::value& tree);

} // namespace orvel
