// SPDX-License-Identifier: Apache-2.0
#include "service/endpoints/Page.h"

#include <map>
#include <utility>

namespace orvel::service {

namespace {

// The empty icon stops browsers from requesting one.
constexpr std::string_view head = R"(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<style>
:root { color-scheme: light dark; --line: #8884; --soft: #8881; --dim: #666; --accent: #0a58ca; }
@media (prefers-color-scheme: dark) { :root { --dim: #a0a0a0; --accent: #8ab4f8; } }
body { font: 15px/1.5 system-ui, sans-serif; max-width: 72rem; margin: 2rem auto; padding: 0 1rem; }
body.narrow { max-width: 26rem; }
h1 { font-size: 1.5rem; line-height: 1.25; margin: 0 0 1rem; }
h2 { font-size: 1.1rem; margin: 2rem 0 .5rem; }
dl { display: flex; flex-wrap: wrap; gap: 1rem; margin: 0; }
dl div { background: var(--soft); border-radius: .5rem; padding: .5rem 1rem; }
dt { color: var(--dim); font-size: .85rem; }
dd { font-size: 1.4rem; font-variant-numeric: tabular-nums; margin: 0; }
.wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; }
th, td { border-bottom: 1px solid var(--line); padding: .35rem .75rem .35rem 0; text-align: start;
  vertical-align: top; }
th { color: var(--dim); font-size: .85rem; font-weight: 500; white-space: nowrap; }
td.fixed { font-variant-numeric: tabular-nums; white-space: nowrap; }
td.text { min-width: 10rem; overflow-wrap: anywhere; white-space: pre-wrap; }
.dim { color: var(--dim); }
a { color: var(--accent); }
form { display: grid; gap: .75rem; margin-top: 1.5rem; }
button, .button { background: var(--soft); border: 1px solid var(--line); border-radius: .5rem;
  box-sizing: border-box; color: inherit; cursor: pointer; display: block; font: inherit;
  overflow-wrap: anywhere; padding: .75rem 1rem; text-align: start; text-decoration: none;
  width: 100%; }
button:hover, .button:hover { border-color: var(--accent); }
button:focus-visible, a:focus-visible { outline: 3px solid var(--accent); outline-offset: 2px; }
button .dim { display: block; font-size: .85rem; }
.plain, .button { text-align: center; }
.button { font-weight: 600; margin-top: 1.5rem; }
</style>
)";

} // namespace

std::string pageStart(std::string_view title, PageWidth width, std::string_view headElements) {
    const auto name = escaped(title);
    std::string html(head);
    html.append("<title>").append(name).append("</title>\n").append(headElements);
    html.append("</head>\n<body").append(width == PageWidth::Narrow ? " class=\"narrow\"" : "");
    return html.append(">\n<main>\n<h1>").append(name).append("</h1>\n");
}

std::string escaped(std::string_view text) {
    static const std::map<char, std::string_view> entities{
        {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};
    std::string result;
    for (const char character : text) {
        const auto entity = entities.find(character);
        result += entity == entities.end() ? std::string_view(&character, 1) : entity->second;
    }
    return result;
}

Reply pageReply(std::string html, std::string_view formAction) {
    std::string policy =
        "default-src 'none'; style-src 'unsafe-inline'; img-src data:; base-uri 'none'; "
        "frame-ancestors 'none'; form-action ";
    policy += formAction;
    return {
        .contentType = "text/html; charset=utf-8",
        .headers =
            {{"Content-Security-Policy", std::move(policy)},
             // "no-referrer" would make browsers leave out the origin of a form.
             {"Referrer-Policy", "same-origin"},
             {"X-Content-Type-Options", "nosniff"},
             {"Cross-Origin-Resource-Policy", "same-origin"}},
        .body = std::move(html)};
}

Reply closedPage() {
    auto html = pageStart("Open the link of the service first", PageWidth::Narrow);
    html += "<p>This page opens only for the user who runs the service, and not through a proxy of "
            "another account. Open the link that "
            "orvel-local-service printed when it started, in this browser. Then open this page "
            "again.</p>\n"
            "<p>Each link works once. The service prints another one when it gets the signal "
            "USR1.</p>\n";
    auto reply = pageReply(html.append(pageEnd));
    reply.status = 403;
    return reply;
}

} // namespace orvel::service
