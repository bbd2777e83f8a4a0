// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <string>
#include <string_view>

/// What the service's pages for people have in common: one look, and no scripts.
namespace orvel::service {

enum class PageWidth { Wide, Narrow };

/// The page up to its first heading, which is its title.
[[nodiscard]] std::string
pageStart(std::string_view title, PageWidth width, std::string_view headElements = {});

inline constexpr std::string_view pageEnd = "</main>\n</body>\n</html>\n";

/// The text for a place between tags or between quotation marks in one.
[[nodiscard]] std::string escaped(std::string_view text);

/// Lets the page load nothing, be framed by nobody, and send its forms to `formAction` only, in the
/// words of a content security policy.
[[nodiscard]] Reply pageReply(std::string html, std::string_view formAction = "'none'");

} // namespace orvel::service
