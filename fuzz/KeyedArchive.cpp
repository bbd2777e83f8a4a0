// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#include "core/Text.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "fuzz/Check.h"
#include "tools/sample/AttributedBodyWriter.h"

#include <algorithm>
#include <string>

using namespace tavrin;

namespace {

/// The first byte of an input that is a text rather than an archive.
constexpr std::uint8_t textMark = 1;

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
    if (const auto text = KeyedArchive::attributedString(archive)) {
        check(isValidUTF8(*text));
        // A byte of ill-formed text becomes three.
        check(text->size() <= 3 * archive.size());
        check(text->empty() || AttributedBodyDecoder::decode(archive) == text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 0 && data[0] == textMark) {
        checkText(repairedUTF8({reinterpret_cast<const char*>(data) + 1, size - 1}));
    } else {
        checkArchive({data, size});
    }
    return 0;
}
