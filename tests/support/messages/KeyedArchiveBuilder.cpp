// SPDX-License-Identifier: Apache-2.0
#include "tests/support/messages/KeyedArchiveBuilder.h"

#include <plist/plist.h>

namespace orvel::test {

namespace {

plist_t makeClass(const std::vector<std::string>& names) {
    plist_t list = plist_new_array();
    for (const std::string& name : names) {
        plist_array_append_item(list, plist_new_string(name.c_str()));
    }
    plist_t object = plist_new_dict();
    plist_dict_set_item(object, "$classname", plist_new_string(names.front().c_str()));
    plist_dict_set_item(object, "$classes", list);
    return object;
}

} // namespace

KeyedArchiveBuilder& KeyedArchiveBuilder::string(std::string_view text) {
    form_ = Form::String;
    text_ = text;
    return *this;
}

KeyedArchiveBuilder& KeyedArchiveBuilder::stringObject(std::string_view text) {
    form_ = Form::StringObject;
    text_ = text;
    return *this;
}

KeyedArchiveBuilder& KeyedArchiveBuilder::bytesObject(std::string_view text) {
    form_ = Form::BytesObject;
    text_ = text;
    return *this;
}

KeyedArchiveBuilder& KeyedArchiveBuilder::classes(std::vector<std::string> names) {
    classes_ = std::move(names);
    return *this;
}

KeyedArchiveBuilder& KeyedArchiveBuilder::with(std::string_view text) {
    others_.emplace_back(text);
    return *this;
}

std::string KeyedArchiveBuilder::binary() const {
    plist_t list = makeList();
    char* bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_bin(list, &bytes, &size);
    std::string result(bytes, size);
    plist_to_bin_free(bytes);
    plist_free(list);
    return result;
}

std::string KeyedArchiveBuilder::xml() const {
    plist_t list = makeList();
    char* bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_xml(list, &bytes, &size);
    std::string result(bytes, size);
    plist_to_xml_free(bytes);
    plist_free(list);
    return result;
}

void* KeyedArchiveBuilder::makeList() const {
    plist_t attributed = plist_new_dict();
    plist_dict_set_item(attributed, "NSString", plist_new_uid(2));
    plist_dict_set_item(attributed, "$class", plist_new_uid(3));

    plist_t text = nullptr;
    if (form_ == Form::String) {
        text = plist_new_string(text_.c_str());
    } else {
        text = plist_new_dict();
        if (form_ == Form::StringObject) {
            plist_dict_set_item(text, "NS.string", plist_new_string(text_.c_str()));
        } else {
            plist_dict_set_item(text, "NS.bytes", plist_new_data(text_.data(), text_.size()));
        }
        plist_dict_set_item(text, "$class", plist_new_uid(4));
    }

    plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));
    plist_array_append_item(objects, attributed);
    plist_array_append_item(objects, text);
    plist_array_append_item(objects, makeClass(classes_));
    plist_array_append_item(objects, makeClass({"NSMutableString", "NSString", "NSObject"}));
    for (const std::string& other : others_) {
        plist_array_append_item(objects, plist_new_string(other.c_str()));
    }

    plist_t top = plist_new_dict();
    plist_dict_set_item(top, "root", plist_new_uid(1));
    plist_t list = plist_new_dict();
    plist_dict_set_item(list, "$version", plist_new_uint(100'000));
    plist_dict_set_item(list, "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(list, "$top", top);
    plist_dict_set_item(list, "$objects", objects);
    return list;
}

} // namespace orvel::test
