// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "fuzz/Check.h"

#include <algorithm>

using namespace tavrin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const AttributedBodyDecoder::Bytes blob(data, size);
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
    for (std::size_t position = 0; position <= size; ++position) {
        if (const auto field = AttributedBodyDecoder::readVariableLength(blob, position)) {
            check(field->next > position && field->next <= size);
        }
    }
    return 0;
}
