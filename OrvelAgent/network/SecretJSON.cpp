// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/SecretJSON.h"

#include "core/JSON.h"
#include "core/Secret.h"

#include <boost/json/parser.hpp>
#include <boost/json/serializer.hpp>

#include <utility>

namespace orvel {

WipingMemory::WipingMemory(boost::json::storage_ptr upstream) : upstream_(std::move(upstream)) {}

void* WipingMemory::do_allocate(std::size_t size, std::size_t alignment) {
    return upstream_->allocate(size, alignment);
}

void WipingMemory::do_deallocate(void* bytes, std::size_t size, std::size_t alignment) {
    tavrin::wipe(bytes, size);
    upstream_->deallocate(bytes, size, alignment);
}

bool WipingMemory::do_is_equal(const boost::json::memory_resource& other) const noexcept {
    return this == &other;
}

boost::json::storage_ptr wipingStorage() {
    // Stateless, so it can be shared.
    static WipingMemory memory;
    return &memory;
}

boost::json::value parseSecretJSON(std::string_view text) {
    const boost::json::storage_ptr storage = wipingStorage();
    // Also use this storage for the parser's temporary buffers.
    boost::json::parser parser(storage);
    parser.reset(storage);
    boost::json::error_code error;
    parser.write(text, error);
    if (error) {
        throw tavrin::JSONDecodingError("The text is not JSON: " + error.message() + ".");
    }
    return parser.release();
}

std::string serializeSecretJSON(const boost::json::value& tree) {
    boost::json::serializer serializer;
    serializer.reset(&tree);
    std::string text(512, '\0');
    std::size_t size = 0;
    while (!serializer.done()) {
        if (size == text.size()) {
            std::string longer(2 * size, '\0');
            longer.replace(0, size, text);
            tavrin::wipe(text);
            text = std::move(longer);
        }
        size += serializer.read(text.data() + size, text.size() - size).size();
    }
    text.resize(size);
    return text;
}

} // namespace orvel
