// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/SampleRandom.h"

#include <cstddef>
#include <string>
#include <string_view>

/// Generates message texts from small tables of phrases.
namespace orvel::SampleText {

/// English, Spanish, German, Japanese, Arabic and Hindi.
inline constexpr std::size_t languageCount = 6;

[[nodiscard]] std::string_view phrase(SampleRandom& random, std::size_t language);

/// Includes joined sequences, skin tones, flags and keycaps.
[[nodiscard]] std::string_view emoji(SampleRandom& random);

/// At least `bytes` bytes of phrases, sometimes with an emoji.
[[nodiscard]] std::string phrases(SampleRandom& random, std::size_t language, std::size_t bytes);

} // namespace orvel::SampleText
