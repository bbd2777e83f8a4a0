// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "fuzz/Check.h"
#include "tools/sample/AttributedBodyWriter.h"

#include <algorithm>
#include <string>

using namespace tavrin;

namespace {

/// The first byte of an input that is a text rather than a stream.
constexpr std::uint8_t textMark = 1;

/// A written text must be read.
void checkText(std::string text) {
    const auto isMutable = !text.empty() && text.front() > 'm';
    const orvel::AttributedBody body{{{std::move(text)}}, isMutable};
    const orvel::Blob stream = orvel::typedStream(body);
    const auto read = AttributedBodyDecoder::decode(stream);
    check(body.parts.front().text.empty() ? !read : read == body.parts.front().text);
}

void checkStream(AttributedBodyDecoder::Bytes blob) {
    if (const auto text = AttributedBodyDecoder::decodeTypedStream(blob)) {
        check(!text->empty());
        check(isValidUTF8(*text));
        const auto isSameByte = [](std::uint8_t byte, char character) {
            return byte == static_cast<std::uint8_t>(character);
        };
        check(
            std::search(blob.begin(), blob.end(), text->begin(), text->end(), isSameByte) !=
            blob.end());
    }
    for (std::size_t position = 0; position <= blob.size(); ++position) {
        if (const auto field = AttributedBodyDecoder::readVariableLength(blob, position)) {
            check(field->next > position && field->next <= blob.size());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const AttributedBodyDecoder::Bytes blob(data, size);
    if (size > 0 && data[0] == textMark) {
        checkText(repairedUTF8({reinterpret_cast<const char*>(data) + 1, size - 1}));
    } else {
        checkStream(blob);
    }
    return 0;
}
