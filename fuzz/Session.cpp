// SPDX-License-Identifier: Apache-2.0
// The first byte of an input selects what is read: the session in the keychain, an ID token, or a
// reply of the identity provider.
#include "OrvelAgent/account/Session.h"

#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/IDToken.h"
#include "OrvelAgent/account/IdentityError.h"
#include "OrvelAgent/network/SecretJSON.h"
#include "core/JSON.h"
#include "core/Text.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>

#include <cmath>
#include <string>

using namespace orvel;

namespace {

Session sessionFrom(std::string_view text) {
    return boost::json::value_to<Session>(parseSecretJSON(text));
}

/// A stored session must be read again unchanged.
void checkSession(std::string_view text) {
    const Session session = sessionFrom(text);
    const std::string stored =
        serializeSecretJSON(boost::json::value_from(session, wipingStorage()));
    const Session again = sessionFrom(stored);
    check(again.refreshToken == session.refreshToken && again.uid == session.uid);
    check(again.email == session.email && again.handle == session.handle);
    check(
        accountOf(session.uid, session.email, session.handle).empty() ||
        !accountOf(session.uid, std::nullopt, std::nullopt).empty() || session.email ||
        session.handle);
}

void checkReply(int status, std::string_view text) {
    constexpr std::string_view apiKey = "the-key-of-the-fuzzer";
    const std::string token = "a-token-that-no-error-may-contain";
    constexpr FirebaseIdentity::ReplyKeys keys{"idToken", "refreshToken", "expiresIn"};
    try {
        const FirebaseIdentity::Reply reply = FirebaseIdentity::decode(
            status, text, keys, tavrin::Secret(std::string(token)), apiKey);
        check(status == 200);
        check(std::isfinite(reply.lifetime.count()));
        check(tavrin::isValidUTF8(reply.idToken.text()));
    } catch (const IdentityError& error) {
        check(status != 200);
        const std::string_view message = error.what();
        check(message.find(token) == std::string_view::npos);
        check(message.find(apiKey) == std::string_view::npos);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const char kind = static_cast<char>(input.byte());
    const std::string_view text = input.rest();
    try {
        switch (kind) {
        case 'i':
            checkReply(200, text);
            break;
        case 'e':
            checkReply(400, text);
            break;
        case 't':
            check(tavrin::isValidUTF8(userIDOf(text)));
            break;
        default:
            checkSession(text);
        }
    } catch (const tavrin::JSONDecodingError&) {
        // Anything else must be refused with this error type only.
    }
    return 0;
}
