// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"
#include "service/accounts/IdentityProvider.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/FaultScript.h"
#include "service/endpoints/Router.h"
#include "service/http/Envelope.h"

#include <boost/json.hpp>

#include <string>
#include <utility>

namespace orvel::service {

namespace {

namespace json = boost::json;

std::int64_t integerBetween(
    const json::object& body,
    std::string_view key,
    std::int64_t least,
    std::int64_t most,
    std::int64_t fallback) {
    const auto value = tavrin::optionalIntegerAt(body, key).value_or(fallback);
    if (value < least || value > most) {
        throw Refusal::invalidRequest(
            "\"" + std::string(key) + "\" must be between " + std::to_string(least) + " and " +
            std::to_string(most) + ".");
    }
    return value;
}

Fault faultOf(const json::object& body) {
    const auto kind = tavrin::stringAt(body, "fault");
    const auto textAt = [&body](std::string_view key) {
        return tavrin::optionalStringAt(body, key);
    };
    if (kind == "status") {
        const auto status = static_cast<int>(integerBetween(body, "status", 200, 599, 503));
        return textAt("code")
                   ? Fault::refusal(status, *textAt("code"), textAt("error").value_or(""))
                   : Fault::answer(status, textAt("body").value_or(""));
    }
    if (kind == "delay") {
        return {};
    }
    if (kind == "reset") {
        return Fault::reset();
    }
    if (kind == "cut-off") {
        return Fault::cutOff();
    }
    if (kind == "accept-then-reset") {
        return Fault::acceptThenReset();
    }
    if (kind == "accept-then-cut-off") {
        return Fault::acceptThenCutOff();
    }
    throw Refusal::invalidRequest("There is no such \"fault\".");
}

bool flagAt(const json::object& body, std::string_view key, bool fallback) {
    return body.contains(key) ? tavrin::booleanAt(body, key) : fallback;
}

Reply revokeSessions(const Request& request, IdentityProvider& provider) {
    const auto body = jsonBody(request);
    const auto uid = tavrin::optionalStringAt(body, "uid").value_or("");
    const auto message = tavrin::optionalStringAt(body, "message").value_or("TOKEN_EXPIRED");
    if (message.empty()) {
        throw Refusal::invalidRequest("\"message\" must not be empty.");
    }
    return success(
        {{"sessions", provider.revokeSessions(uid, message, flagAt(body, "endIDTokens", false))}});
}

Reply disableUser(const Request& request, IdentityProvider& provider) {
    const auto body = jsonBody(request);
    const auto uid = tavrin::stringAt(body, "uid");
    if (findAccount(provider.accounts(), uid) == nullptr) {
        throw Refusal::invalidRequest("There is no account with this \"uid\".");
    }
    const bool isDisabled = flagAt(body, "disabled", true);
    provider.setUserDisabled(uid, isDisabled);
    return success({{"uid", uid}, {"disabled", isDisabled}});
}

} // namespace

void addControlEndpoints(
    Router& router,
    FaultScript& faults,
    IdentityProvider& provider,
    std::function<json::object()> statistics) {
    using enum Router::Access;
    router.add("POST", "/control/faults", BearerToken, [&faults](const Request& request) {
        const auto body = jsonBody(request);
        auto fault = faultOf(body);
        fault.path = tavrin::optionalStringAt(body, "path").value_or("");
        fault.delay =
            std::chrono::milliseconds(integerBetween(body, "delayMilliseconds", 0, 86'400'000, 0));
        const auto times = integerBetween(body, "times", 1, 1'000'000, 1);
        faults.add(std::move(fault), static_cast<std::size_t>(times));
        return success({{"pendingFaults", faults.pending()}});
    });
    router.add("DELETE", "/control/faults", BearerToken, [&faults](const Request&) {
        faults.clear();
        return success({{"pendingFaults", 0}});
    });
    router.add(
        "POST", "/control/sessions/revoke", BearerToken, [&provider](const Request& request) {
            return revokeSessions(request, provider);
        });
    router.add("POST", "/control/id-tokens/expire", BearerToken, [&provider](const Request&) {
        return success({{"idTokens", provider.expireIDTokens()}});
    });
    router.add("POST", "/control/users/disable", BearerToken, [&provider](const Request& request) {
        return disableUser(request, provider);
    });
    router.add(
        "GET", "/control/stats", BearerToken, [statistics = std::move(statistics)](const Request&) {
            return success(statistics());
        });
}

} // namespace orvel::service
