// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace orvel {

/// Whether the text is an https URL of only those characters that a URL may have. Others could be
/// mishandled by a shell script, or end a line of HTTP.
[[nodiscard]] bool isHttpsURL(std::string_view text);

/// Whether the text is an http URL of a port of 127.0.0.1, of only those characters.
[[nodiscard]] bool isLoopbackURL(std::string_view text);

} // namespace orvel
