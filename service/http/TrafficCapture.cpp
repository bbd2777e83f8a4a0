// SPDX-License-Identifier: Apache-2.0
#include "service/http/TrafficCapture.h"

#include "core/Text.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace orvel::service {

namespace {

constexpr std::array<std::string_view, 3> secretHeaders = {
    "Authorization", "Cookie", "Proxy-Authorization"};

bool isSecret(std::string_view name) {
    return std::ranges::any_of(secretHeaders, [name](std::string_view secret) {
        return equalsIgnoringCase(name, secret);
    });
}

/// The whole text in one line, without control characters.
std::string line(std::string_view text) {
    return tavrin::onOneLine(tavrin::repairedUTF8(text));
}

} // namespace

void TrafficCapture::append(const Request& request, Sender sender) {
    std::string text = line(request.method + " " + request.path) + "\r\n";
    for (const auto& [name, value] : request.headers) {
        text += line(name + ": " + (isSecret(name) ? "(left out)" : value)) + "\r\n";
    }
    const bool isLeftOut = sender == Sender::Stranger && !request.body.empty();
    text += "\r\n" + (isLeftOut ? "(left out)" : request.body) + "\r\n";
    const std::lock_guard lock(mutex_);
    if (sender == Sender::Stranger) {
        if (strangerBytes_ >= maximumStrangerBytes) {
            return;
        }
        strangerBytes_ += text.size();
        if (strangerBytes_ >= maximumStrangerBytes) {
            text = "(further requests without an accepted token are left out)\r\n";
        }
    }
    file_.write(text);
}

} // namespace orvel::service
