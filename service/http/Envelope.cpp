// SPDX-License-Identifier: Apache-2.0
#include "service/http/Envelope.h"

#include <boost/json.hpp>

#include <utility>

namespace orvel::service {

Refusal Refusal::invalidRequest(const std::string& sentence) {
    return {400, "invalid_request", sentence};
}

Reply success(const boost::json::object& data) {
    return {.body = boost::json::serialize(boost::json::object{{"ok", true}, {"data", data}})};
}

Reply refused(const Refusal& refusal) {
    const boost::json::object body{
        {"ok", false}, {"error", refusal.what()}, {"code", refusal.code()}};
    return {.status = refusal.status(), .body = boost::json::serialize(body)};
}

boost::json::object jsonBody(const Request& request, boost::json::storage_ptr memory) {
    if (!request.hasContentType("application/json")) {
        throw Refusal(415, "unsupported_media_type", "The content type must be application/json.");
    }
    boost::json::error_code error;
    auto json = boost::json::parse(request.body, error, std::move(memory));
    if (error) {
        throw Refusal::invalidRequest("The request body is not JSON.");
    }
    if (!json.is_object()) {
        throw Refusal::invalidRequest("The request body must be a JSON object.");
    }
    return std::move(json.get_object());
}

} // namespace orvel::service
