// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/AttributedBodyWriter.h"

#include "tools/sample/TypedStreamWriter.h"

#include <plist/plist.h>

#include <memory>
#include <string_view>

namespace orvel {

namespace {

constexpr TypedStreamWriter::Class rootClass{"NSObject", 0};
constexpr TypedStreamWriter::Class stringClass{"NSString", 1};

/// Attribute runs count UTF-16 units.
std::uint32_t utf16Length(std::string_view text) {
    std::uint32_t length = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool continuesCharacter = (byte & 0xC0U) == 0x80U;
        const bool needsSurrogates = byte >= 0xF0U;
        length += continuesCharacter ? 0U : needsSurrogates ? 2U : 1U;
    }
    return length;
}

std::size_t writeString(TypedStreamWriter& writer, std::string_view text) {
    const std::size_t object = writer.beginObject({stringClass, rootClass});
    writer.writeType("+");
    writer.writeBytes(text);
    writer.endObject();
    return object;
}

/// An attribute name: written as an object once, then referenced.
class AttributeName final {
public:
    explicit AttributeName(std::string_view name) : name_(name) {}

    void write(TypedStreamWriter& writer) {
        if (object_ != 0) {
            writer.writeType("@");
            writer.writeReference(object_);
        } else {
            object_ = writeString(writer, name_);
        }
    }

private:
    std::string_view name_;
    /// 0 until written. The attributed string itself has the number 0.
    std::size_t object_ = 0;
};

struct PropertyListDeleter {
    void operator()(void* node) const { plist_free(node); }
};

plist_t classDescription(std::initializer_list<const char*> lineage) {
    const plist_t names = plist_new_array();
    for (const char* name : lineage) {
        plist_array_append_item(names, plist_new_string(name));
    }
    const plist_t description = plist_new_dict();
    plist_dict_set_item(description, "$classname", plist_new_string(*lineage.begin()));
    plist_dict_set_item(description, "$classes", names);
    return description;
}

} // namespace

std::string AttributedBody::text() const {
    std::string text;
    for (const auto& part : parts) {
        text += part.text;
    }
    return text;
}

Blob typedStream(const AttributedBody& body) {
    TypedStreamWriter writer;
    if (body.isMutable) {
        writer.beginObject(
            {{"NSMutableAttributedString", 0}, {"NSAttributedString", 0}, rootClass});
        writer.beginObject({{"NSMutableString", 1}, stringClass, rootClass});
    } else {
        writer.beginObject({{"NSAttributedString", 0}, rootClass});
        writer.beginObject({stringClass, rootClass});
    }
    writer.writeType("+");
    writer.writeBytes(body.text());
    writer.endObject();

    AttributeName partName("__kIMMessagePartAttributeName");
    AttributeName attachmentName("__kIMFileTransferGUIDAttributeName");
    std::int32_t number = 0;
    for (const auto& part : body.parts) {
        writer.writeType("iI");
        writer.writeInteger(number + 1);
        writer.writeLength(utf16Length(part.text));
        writer.beginObject({{"NSDictionary", 0}, rootClass});
        writer.writeType("i");
        writer.writeInteger(part.attachmentGUID.empty() ? 1 : 2);
        if (!part.attachmentGUID.empty()) {
            attachmentName.write(writer);
            writeString(writer, part.attachmentGUID);
        }
        partName.write(writer);
        writer.beginObject({{"NSNumber", 0}, {"NSValue", 0}, rootClass});
        writer.writeType("*");
        writer.writeCString("i");
        writer.writeType("i");
        writer.writeInteger(number);
        writer.endObject();
        writer.endObject();
        ++number;
    }
    writer.endObject();
    return writer.take();
}

Blob keyedArchive(const AttributedBody& body) {
    // Objects refer to each other by their index in one array. Index 0 means no object.
    constexpr std::uint64_t root = 1;
    constexpr std::uint64_t string = 2;
    constexpr std::uint64_t rootClassIndex = 3;
    constexpr std::uint64_t stringClassIndex = 4;

    const plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));

    const plist_t attributedString = plist_new_dict();
    plist_dict_set_item(attributedString, "NSString", plist_new_uid(string));
    plist_dict_set_item(attributedString, "$class", plist_new_uid(rootClassIndex));
    plist_array_append_item(objects, attributedString);

    const plist_t text = plist_new_string(body.text().c_str());
    if (body.isMutable) {
        const plist_t mutableString = plist_new_dict();
        plist_dict_set_item(mutableString, "NS.string", text);
        plist_dict_set_item(mutableString, "$class", plist_new_uid(stringClassIndex));
        plist_array_append_item(objects, mutableString);
        plist_array_append_item(
            objects,
            classDescription({"NSMutableAttributedString", "NSAttributedString", "NSObject"}));
        plist_array_append_item(
            objects, classDescription({"NSMutableString", "NSString", "NSObject"}));
    } else {
        plist_array_append_item(objects, text);
        plist_array_append_item(objects, classDescription({"NSAttributedString", "NSObject"}));
    }

    const plist_t top = plist_new_dict();
    plist_dict_set_item(top, "root", plist_new_uid(root));

    const std::unique_ptr<void, PropertyListDeleter> archive(plist_new_dict());
    plist_dict_set_item(archive.get(), "$version", plist_new_uint(100'000));
    plist_dict_set_item(archive.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(archive.get(), "$top", top);
    plist_dict_set_item(archive.get(), "$objects", objects);

    char* data = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(archive.get(), &data, &length);
    Blob bytes(data, data + length);
    plist_to_bin_free(data);
    return bytes;
}

} // namespace orvel
