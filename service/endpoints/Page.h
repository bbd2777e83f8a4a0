// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <string>
#include <string_view>

/// The common parts of the service's web pages: one style, no scripts.
namespace orvel::service {

enum class PageWidth { Wide, Narrow };

/// The page up to its first heading, which repeats the title.
[[nodiscard]] std::string
pageStart(std::string_view title, PageWidth width, std::string_view headElements = {});

inline constexpr std::string_view pageEnd = "</main>\n</body>\n</html>\n";

/// Escapes text for HTML content and quoted attribute values.
[[nodiscard]] std::string escaped(std::string_view text);

/// Adds a content security policy: the page loads nothing, cannot be framed, and sends its forms to
/// `formAction` only, which is a source expression of the policy.
[[nodiscard]] Reply pageReply(std::string html, std::string_view formAction = "'none'");

/// The reply to a browser that has not opened a one-time link: says how to get in.
[[nodiscard]] Reply closedPage();

} // namespace orvel::service
