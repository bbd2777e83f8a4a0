// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#include "core/Text.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "tools/sample/AttributedBodyWriter.h"

#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

using namespace tavrin;

namespace {

/// The first byte of an input that is a text rather than an archive.
constexpr std::uint8_t textMark = 1;
/// The first byte of an input that chooses the objects of an archive.
constexpr std::uint8_t objectsMark = 2;

/// A written text must be read.
void checkText(std::string text) {
    // The writer ends a text at NUL.
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    const auto isMutable = !text.empty() && text.front() > 'm';
    const orvel::AttributedBody body{{{std::move(text)}}, isMutable};
    const orvel::Blob archive = orvel::keyedArchive(body);
    check(KeyedArchive::attributedString(archive) == body.parts.front().text);
}

void checkArchive(std::span<const std::uint8_t> archive) {
    const auto text = KeyedArchive::attributedString(archive);
    const auto decoded = AttributedBodyDecoder::decode(archive);
    if (text && !text->empty()) {
        check(decoded == text);
    } else {
        check(decoded == AttributedBodyDecoder::decodeTypedStream(archive));
    }
    if (text) {
        check(isValidUTF8(*text));
        // A byte of ill-formed text becomes three.
        check(text->size() <= 3 * archive.size());
    }
}

/// A text of the input without the characters that XML cannot contain.
std::string textFrom(Input& input) {
    std::string text = repairedUTF8(input.text());
    std::erase_if(text, [](char character) { return static_cast<unsigned char>(character) < ' '; });
    return text;
}

std::string nameFrom(Input& input) {
    static constexpr std::array<std::string_view, 6> names{
        "NSAttributedString",
        "NSMutableAttributedString",
        "NSObject",
        "NSString",
        "NSKeyedArchiver",
        "Hello"};
    const std::uint8_t choice = input.byte();
    return choice < names.size() ? std::string(names[choice]) : textFrom(input);
}

// The plist functions take over the nodes that are put into others.
plist_t nodeFrom(Input& input, int depth) {
    constexpr int deepest = 3;
    constexpr unsigned mostChildren = 5;
    const std::uint8_t kind = input.below(depth < deepest ? 8 : 6);
    switch (kind) {
    case 0:
        return plist_new_uid(input.byte());
    case 1:
        return plist_new_string(nameFrom(input).c_str());
    case 2: {
        const std::string text = textFrom(input);
        return plist_new_data(text.data(), text.size());
    }
    case 3:
        return plist_new_uint(input.byte());
    case 4:
        return plist_new_bool(1);
    case 5: {
        // The text of another object.
        const plist_t reference = plist_new_dict();
        plist_dict_set_item(reference, "CF$UID", plist_new_uint(input.byte()));
        return reference;
    }
    case 6: {
        const plist_t array = plist_new_array();
        for (unsigned left = input.below(mostChildren); left > 0; --left) {
            plist_array_append_item(array, nodeFrom(input, depth + 1));
        }
        return array;
    }
    default: {
        static constexpr std::array<const char*, 6> keys{
            "$class", "$classes", "NSString", "NS.string", "NS.bytes", "CF$UID"};
        const plist_t dictionary = plist_new_dict();
        for (unsigned left = input.below(mostChildren); left > 0; --left) {
            const char* const key = keys.at(input.below(keys.size()));
            plist_dict_set_item(dictionary, key, nodeFrom(input, depth + 1));
        }
        return dictionary;
    }
    }
}

struct FreeNode {
    void operator()(void* node) const { plist_free(node); }
};
struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

/// Both forms of an archive have the same text.
void checkObjects(Input& input) {
    const std::unique_ptr<void, FreeNode> archive(plist_new_dict());
    if (input.below(8) != 1) {
        plist_dict_set_item(archive.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
    }
    const plist_t top = plist_new_dict();
    plist_dict_set_item(top, "root", nodeFrom(input, 1));
    plist_dict_set_item(archive.get(), "$top", top);
    const plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));
    constexpr std::uint32_t mostObjects = 12;
    while (!input.isAtEnd() && plist_array_get_size(objects) < mostObjects) {
        plist_array_append_item(objects, nodeFrom(input, 1));
    }
    plist_dict_set_item(archive.get(), "$objects", objects);

    std::array<std::optional<std::string>, 2> texts;
    using Write = decltype(&plist_to_bin);
    for (std::size_t form = 0; const Write write : {&plist_to_bin, &plist_to_xml}) {
        char* bytes = nullptr;
        std::uint32_t length = 0;
        write(archive.get(), &bytes, &length);
        const std::unique_ptr<char, FreeMemory> written(bytes);
        texts.at(form++) =
            KeyedArchive::attributedString({reinterpret_cast<const std::uint8_t*>(bytes), length});
    }
    check(texts[0] == texts[1]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t mark = input.byte();
    if (mark == textMark) {
        checkText(repairedUTF8(input.rest()));
    } else if (mark == objectsMark) {
        checkObjects(input);
    } else {
        checkArchive({data, size});
    }
    return 0;
}
