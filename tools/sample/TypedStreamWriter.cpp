// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/TypedStreamWriter.h"

#include <algorithm>
#include <utility>

namespace orvel {

namespace {

constexpr std::uint8_t wideInteger = 0x81;
constexpr std::uint8_t longInteger = 0x82;
constexpr std::uint8_t somethingNew = 0x84;
constexpr std::uint8_t nothing = 0x85;
constexpr std::uint8_t endOfObject = 0x86;

/// References count up from here. Smaller integers are the marks above.
constexpr int firstReference = -110;

constexpr std::uint8_t streamVersion = 4;
constexpr std::string_view signature = "streamtyped";
constexpr std::int32_t systemVersion = 1000;

} // namespace

TypedStreamWriter::TypedStreamWriter() {
    bytes_.reserve(512);
    writeByte(streamVersion);
    writeBytes(signature);
    writeInteger(systemVersion);
}

void TypedStreamWriter::writeType(std::string_view encoding) {
    writeSharedString(encoding);
}

void TypedStreamWriter::writeInteger(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    if (value >= firstReference && std::in_range<std::int8_t>(value)) {
        writeByte(static_cast<std::uint8_t>(bits));
    } else {
        writeWide(bits, std::in_range<std::int16_t>(value));
    }
}

void TypedStreamWriter::writeLength(std::uint32_t length) {
    if (length <= 0x7F) {
        writeByte(static_cast<std::uint8_t>(length));
    } else {
        // Unsigned: two bytes suffice up to 65,535.
        writeWide(length, std::in_range<std::uint16_t>(length));
    }
}

void TypedStreamWriter::writeWide(std::uint32_t bits, bool fitsTwoBytes) {
    writeByte(fitsTwoBytes ? wideInteger : longInteger);
    for (int index = 0; index < (fitsTwoBytes ? 2 : 4); ++index) {
        writeByte(static_cast<std::uint8_t>(bits >> (8 * index)));
    }
}

void TypedStreamWriter::writeBytes(std::string_view bytes) {
    writeLength(static_cast<std::uint32_t>(bytes.size()));
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void TypedStreamWriter::writeCString(std::string_view string) {
    writeByte(somethingNew);
    numbered_.emplace_back();
    writeSharedString(string);
}

std::size_t TypedStreamWriter::beginObject(std::initializer_list<Class> lineage) {
    writeType("@");
    writeByte(somethingNew);
    const std::size_t object = numbered_.size();
    numbered_.emplace_back();
    for (const Class& type : lineage) {
        const auto known = std::find(numbered_.begin(), numbered_.end(), type.name);
        if (known != numbered_.end()) {
            // A reference to a known class includes its superclasses.
            writeReference(static_cast<std::size_t>(known - numbered_.begin()));
            return object;
        }
        writeByte(somethingNew);
        numbered_.emplace_back(type.name);
        writeSharedString(type.name);
        writeInteger(type.version);
    }
    writeByte(nothing);
    return object;
}

void TypedStreamWriter::endObject() {
    writeByte(endOfObject);
}

void TypedStreamWriter::writeReference(std::size_t object) {
    writeInteger(firstReference + static_cast<std::int32_t>(object));
}

void TypedStreamWriter::writeSharedString(std::string_view string) {
    const auto known = std::find(sharedStrings_.begin(), sharedStrings_.end(), string);
    if (known != sharedStrings_.end()) {
        writeReference(static_cast<std::size_t>(known - sharedStrings_.begin()));
        return;
    }
    writeByte(somethingNew);
    writeBytes(string);
    sharedStrings_.emplace_back(string);
}

} // namespace orvel
