// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Writes the typed-stream archive layout: a header, then values, each group preceded by its type
/// encoding. Type encodings and class names are written out once and referred to by number from
/// then on; so are classes and objects.
class TypedStreamWriter final {
public:
    struct Class {
        std::string_view name;
        int version;
    };

    /// Writes the header.
    TypedStreamWriter();

    /// "@" for an object, "+" for counted bytes, "i" and "I" for integers, "*" for a C string.
    void writeType(std::string_view encoding);
    void writeInteger(std::int32_t value);
    void writeLength(std::uint32_t length);
    void writeBytes(std::string_view bytes);
    void writeCString(std::string_view string);

    /// The class comes first, then its superclasses up to the root. Returns the object's number;
    /// what follows up to `endObject()` belongs to it.
    std::size_t beginObject(std::initializer_list<Class> lineage);
    void endObject();

    /// An object already written.
    void writeReference(std::size_t object);

    [[nodiscard]] std::vector<std::uint8_t> take() { return std::move(bytes_); }

private:
    void writeByte(std::uint8_t byte) { bytes_.push_back(byte); }
    void writeSharedString(std::string_view string);

    std::vector<std::uint8_t> bytes_;
    std::vector<std::string> sharedStrings_;
    /// The class names among what has a number; empty for an object or a C string.
    std::vector<std::string> numbered_;
};

} // namespace orvel
