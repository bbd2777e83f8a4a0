// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/service/ServiceTest.h"

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

inline constexpr const char* linkPath = "/link";
inline constexpr const char* deviceTokenPath = "/api/v1/auth/device/token";
inline constexpr const char* profilePath = "/api/v1/profile";
inline constexpr const char* signInPath = "/identity/v1/accounts:signInWithCustomToken";
inline constexpr const char* refreshPath = "/identity/v1/token";

/// The example of RFC 7636, appendix B.
inline constexpr const char* verifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
inline constexpr const char* challenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";

inline constexpr const char* firstUid = "sample-account-1";
inline constexpr const char* secondUid = "sample-account-2";

inline std::string textAt(const boost::json::object& json, std::string_view key) {
    return boost::json::value_to<std::string>(json.at(key));
}

/// The error code in the identity provider's format.
inline std::string identityMessage(const ClientReply& reply) {
    return textAt(reply.json().at("error").as_object(), "message");
}

/// All tokens and codes in the text, from their prefix to their end.
inline std::vector<std::string> secretsIn(std::string_view text) {
    std::vector<std::string> found;
    for (const std::string_view word :
         {"orvel-browser-",
          "orvel-code-",
          "orvel-custom-",
          "orvel-id-",
          "orvel-page-",
          "orvel-refresh-"}) {
        for (auto start = text.find(word); start != std::string_view::npos;
             start = text.find(word, start + 1)) {
            constexpr std::string_view alphabet =
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
            const auto end = text.find_first_not_of(alphabet, start);
            found.emplace_back(text.substr(start, end - start));
        }
    }
    return found;
}

/// A service with a manual clock, and the steps of a sign-in.
class SignInTest : public ServiceTest {
protected:
    SignInTest() {
        options_.now = [this] {
            return now_.load();
        };
    }

    void advance(std::chrono::seconds duration) { now_ = now_.load() + duration; }

    /// A client without a bearer token.
    [[nodiscard]] Client clientWithoutToken() const {
        auto client = this->client();
        client.token.clear();
        return client;
    }

    [[nodiscard]] Client bearer(const std::string& token) const {
        auto client = this->client();
        client.token = token;
        return client;
    }

    [[nodiscard]] ClientReply postForm(
        const std::string& path,
        const std::string& form,
        std::vector<std::string> headers = {}) const {
        headers.emplace_back("Content-Type: application/x-www-form-urlencoded");
        return clientWithoutToken().send("POST", path, headers, form);
    }

    /// Sends the form of the sign-in page.
    [[nodiscard]] ClientReply choose(const std::string& choice) const {
        return postForm(
            linkPath,
            "challenge=" + std::string(challenge) + "&" + choice,
            {"Origin: " + service_->url(), "Sec-Fetch-Site: same-origin"});
    }

    [[nodiscard]] ClientReply
    exchange(const std::string& code, const std::string& withVerifier = verifier) const {
        const boost::json::object body{{"code", code}, {"codeVerifier", withVerifier}};
        return clientWithoutToken().post(deviceTokenPath, boost::json::serialize(body));
    }

    [[nodiscard]] std::string customToken() const {
        return textAt(exchange(service_->mintCode(challenge, firstUid)).data(), "customToken");
    }

    [[nodiscard]] ClientReply
    signInWith(const std::string& customToken, const std::string& query = "?key=") const {
        const boost::json::object body{{"token", customToken}, {"returnSecureToken", true}};
        return clientWithoutToken().post(signInPath + query, boost::json::serialize(body));
    }

    [[nodiscard]] ClientReply
    refreshWith(const std::string& refreshToken, const std::string& query = "?key=") const {
        return postForm(
            refreshPath + query, "grant_type=refresh_token&refresh_token=" + refreshToken);
    }

    /// The reply to a request with the token: its status, and its error code if refused.
    [[nodiscard]] std::string answerTo(const std::string& idToken) const {
        const auto reply = bearer(idToken).post(digestPath, "{}");
        return std::to_string(reply.status) + (reply.status == 200 ? "" : " " + reply.code());
    }

private:
    std::atomic<std::chrono::system_clock::time_point> now_{
        std::chrono::system_clock::time_point(std::chrono::seconds(1'710'003'942))};
};

} // namespace orvel::test
