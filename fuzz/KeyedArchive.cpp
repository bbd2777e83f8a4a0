// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#include "core/Text.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "fuzz/Check.h"

using namespace tavrin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> archive(data, size);
    const auto text = KeyedArchive::attributedString(archive);
    check(!text || isValidUTF8(*text));
    const auto decoded = AttributedBodyDecoder::decode(archive);
    check(!decoded || !decoded->empty());
    check(!text || text->empty() || decoded == text);
    return 0;
}
