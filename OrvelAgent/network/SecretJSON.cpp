// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/SecretJSON.h"

#include "core/JSON.h"
#include "core/Secret.h"
#include "core/Text.h"

#include <boost/json/parser.hpp>
#include <boost/json/serializer.hpp>

#include <new>
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

LimitedMemory::LimitedMemory(std::size_t limit, boost::json::storage_ptr upstream)
    : left_(limit), upstream_(std::move(upstream)) {}

void* LimitedMemory::do_allocate(std::size_t size, std::size_t alignment) {
    if (size > left_) {
        throw std::bad_alloc();
    }
    void* const bytes = upstream_->allocate(size, alignment);
    left_ -= size;
    return bytes;
}

void LimitedMemory::do_deallocate(void* bytes, std::size_t size, std::size_t alignment) {
    upstream_->deallocate(bytes, size, alignment);
    left_ += size;
}

bool LimitedMemory::do_is_equal(const boost::json::memory_resource& other) const noexcept {
    return this == &other;
}

boost::json::storage_ptr wipingStorage() {
    // Stateless, so it can be shared.
    static WipingMemory memory;
    return &memory;
}

boost::json::value parseSecretJSON(std::string_view text, boost::json::storage_ptr upstream) {
    text = tavrin::withoutByteOrderMark(text);
    // The tree shares the ownership of its storage.
    const auto storage = boost::json::make_shared_resource<WipingMemory>(
        boost::json::make_shared_resource<LimitedMemory>(
            maximumJSONMemory(text.size()), std::move(upstream)));
    boost::json::parse_options options;
    options.max_depth = maximumJSONDepth;
    // Also use this storage for the parser's temporary buffers.
    boost::json::parser parser(storage, options);
    parser.reset(storage);
    boost::json::error_code error;
    try {
        parser.write(text, error);
    } catch (const std::bad_alloc&) {
        throw tavrin::JSONDecodingError("The JSON text needs too much memory.");
    }
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
