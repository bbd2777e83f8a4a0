// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/SignInCallback.h"

#include "OrvelAgent/account/AuthError.h"
#include "OrvelAgent/network/QueryItems.h"
#include "core/SignInFailure.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::SignInCallback {

namespace {

/// What a callback says. Only the first code and the first error with a value count.
struct Items {
    std::optional<tavrin::Secret> code;
    std::optional<std::string> error;
};

/// No value if the callback is no URL.
std::optional<Items> itemsOf(const std::string& callback) {
    std::optional<std::vector<QueryItem>> query = queryItems(callback);
    if (!query) {
        return std::nullopt;
    }
    Items items;
    for (QueryItem& item : *query) {
        if (item.name == "error" && item.value && !items.error) {
            items.error = *item.value;
        } else if (item.name == "code" && !items.code) {
            // Use only the first code, even if it has no value.
            items.code.emplace(std::move(item.value).value_or(""));
        }
        if (item.value) {
            tavrin::wipe(*item.value);
        }
    }
    return items;
}

/// Whether the error is that of a missing account, or one of the OAuth standard's.
bool isKnown(const std::string& error) {
    constexpr std::array<std::string_view, 7> standard{
        "access_denied",
        "invalid_request",
        "invalid_scope",
        "server_error",
        "temporarily_unavailable",
        "unauthorized_client",
        "unsupported_response_type"};
    const auto failure = tavrin::SignInFailure::fromCallbackError(error);
    return std::holds_alternative<tavrin::SignInFailure::NoAccount>(failure.reason()) ||
           std::ranges::find(standard, error) != standard.end();
}

} // namespace

tavrin::Secret code(const std::string& callback) {
    std::optional<Items> items = itemsOf(callback);
    if (!items) {
        throw AuthError("Sign-in returned an unreadable response.");
    }
    if (items->error) {
        throw AuthError(tavrin::SignInFailure::fromCallbackError(*items->error));
    }
    if (!items->code || items->code->isEmpty()) {
        throw AuthError("Sign-in did not return an authorization code.");
    }
    return *std::move(items->code);
}

std::optional<WebAuthenticationSession::Outcome> screened(std::string callback) {
    const std::optional<Items> items = itemsOf(callback);
    if (!items) {
        return std::nullopt;
    }
    const bool hasCode = items->code && !items->code->isEmpty();
    if (items->error ? items->error->empty() : !hasCode) {
        return std::nullopt;
    }
    if (items->error && !isKnown(*items->error)) {
        return WebAuthenticationSession::Failed{"The sign-in page reported an error."};
    }
    return callback;
}

} // namespace orvel::SignInCallback
