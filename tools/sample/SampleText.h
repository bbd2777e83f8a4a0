// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/SampleRandom.h"

#include <cstddef>
#include <string>
#include <string_view>

/// Message texts put together from small tables of phrases.
namespace orvel::SampleText {

/// The languages the phrases are in: English, Spanish, German, Japanese, Arabic and Hindi.
inline constexpr std::size_t languageCount = 6;

[[nodiscard]] std::string_view phrase(SampleRandom& random, std::size_t language);

/// Among them are joined sequences, skin tones, flags and keycaps.
[[nodiscard]] std::string_view emoji(SampleRandom& random);

/// Phrases, now and then with an emoji, until there are at least so many bytes.
[[nodiscard]] std::string phrases(SampleRandom& random, std::size_t language, std::size_t bytes);

} // namespace orvel::SampleText
