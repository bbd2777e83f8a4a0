// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Writes the typed-stream archive layout: a header, then groups of values, each after its type
/// encoding. Type encodings, class names, classes and objects are written in full once and by
/// number after that.
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

    /// Also writes the type of an object. `lineage` is the class, then its superclasses up to the
    /// root. Everything up to `endObject()` belongs to the object. Returns the object's number.
    std::size_t beginObject(std::initializer_list<Class> lineage);
    void endObject();

    /// Refers to an object that was written before.
    void writeReference(std::size_t object);

    [[nodiscard]] std::vector<std::uint8_t> take() { return std::move(bytes_); }

private:
    void writeByte(std::uint8_t byte) { bytes_.push_back(byte); }
    void writeWide(std::uint32_t bits, bool fitsTwoBytes);
    void writeSharedString(std::string_view string);

    std::vector<std::uint8_t> bytes_;
    std::vector<std::string> sharedStrings_;
    /// The names of numbered classes. Empty entries are objects and C strings.
    std::vector<std::string> numbered_;
};

} // namespace orvel
