// SPDX-License-Identifier: Apache-2.0
#include "service/http/TrafficCapture.h"

#include <string>

namespace orvel::service {

void TrafficCapture::append(const Request& request, Body body) {
    std::string text = request.method + " " + request.path + "\r\n";
    for (const auto& [name, value] : request.headers) {
        const bool isSecret =
            equalsIgnoringCase(name, "Authorization") || equalsIgnoringCase(name, "Cookie");
        text += name + ": " + (isSecret ? "(left out)" : value) + "\r\n";
    }
    const bool isLeftOut = body == Body::LeftOut && !request.body.empty();
    text += "\r\n" + (isLeftOut ? "(left out)" : request.body) + "\r\n";
    const std::lock_guard lock(mutex_);
    file_.write(text);
}

} // namespace orvel::service
