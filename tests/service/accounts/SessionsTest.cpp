// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/SessionStore.h"
#include "tests/service/SignInTest.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace orvel::test {
namespace {

using testing::IsEmpty;
using testing::Not;

class SessionsTest : public SignInTest {
protected:
    void SetUp() override { start(); }

    /// The error code of a refresh; empty if it succeeds.
    [[nodiscard]] std::string refusal(const service::IdentityProvider::Tokens& session) const {
        const auto reply = refreshWith(session.refreshToken);
        return reply.status == 200 ? "" : identityMessage(reply);
    }
};

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST_F(SessionsTest, TheirIDTokensAreAcceptedBesidesConfiguredTokens) {
    options_.tokens = {"given"};
    start();

    EXPECT_EQ("200", answerTo(service_->signIn(firstUid).idToken));
    EXPECT_EQ("200", answerTo("given"));
    EXPECT_EQ("401 unauthorized", answerTo("other"));
}

TEST_F(SessionsTest, TheirIDTokensEndAfterAnHour) {
    const auto session = service_->signIn(firstUid);
    advance(std::chrono::seconds(3599));
    EXPECT_EQ("200", answerTo(session.idToken));

    advance(std::chrono::seconds(1));

    EXPECT_EQ("401 unauthorized", answerTo(session.idToken));
    EXPECT_EQ("200", answerTo(textAt(refreshWith(session.refreshToken).json(), "id_token")));
    EXPECT_EQ("401 unauthorized", answerTo(session.idToken));
}

TEST_F(SessionsTest, EndAfterSevenDays) {
    const auto session = service_->signIn(firstUid);
    advance(std::chrono::hours(24 * 7) - std::chrono::seconds(1));
    const auto last = textAt(refreshWith(session.refreshToken).json(), "id_token");
    EXPECT_EQ("200", answerTo(last));

    advance(std::chrono::seconds(1));

    EXPECT_EQ("401 session_expired", answerTo(last));
    EXPECT_EQ("TOKEN_EXPIRED", refusal(session));
    EXPECT_EQ("", refusal(service_->signIn(firstUid)));
}

TEST_F(SessionsTest, EndEvenIfTheServiceRestarts) {
    const auto session = service_->signIn(firstUid);
    advance(std::chrono::hours(24 * 7));

    start();

    EXPECT_EQ("TOKEN_EXPIRED", refusal(session));
}

TEST_F(SessionsTest, AreForgottenAMonthAfterTheirEnd) {
    const auto session = service_->signIn(firstUid);
    advance(std::chrono::hours(24 * (7 + 30)));
    EXPECT_EQ("TOKEN_EXPIRED", refusal(session));

    static_cast<void>(service_->signIn(firstUid));

    EXPECT_EQ("INVALID_REFRESH_TOKEN", refusal(session));
}

TEST_F(SessionsTest, TheOldestOfTooManyIsForgotten) {
    service::SessionStore store(options_.store);
    const auto now = std::chrono::system_clock::now();
    for (std::int64_t number = 0; number <= service::SessionStore::maxSessions; ++number) {
        store.add(firstUid, std::to_string(number), now + std::chrono::hours(1), now);
    }
    EXPECT_EQ(std::nullopt, store.find("0"));
    EXPECT_NE(std::nullopt, store.find("1"));
}

TEST_F(SessionsTest, TheOldestOfTooManyIDTokensIsForgotten) {
    service::SessionStore store(options_.store);
    const auto now = std::chrono::system_clock::now();
    const auto end = now + std::chrono::hours(1);
    const auto session = store.add(firstUid, "refresh", end, now);
    for (std::int64_t number = 0; number <= service::SessionStore::maxIDTokens; ++number) {
        store.addIDToken(session, std::to_string(number), end, now);
    }
    EXPECT_EQ(std::nullopt, store.bearer("0"));
    EXPECT_NE(std::nullopt, store.bearer("1"));
}

TEST_F(SessionsTest, OfAStoreThatKnowsNoEndAreRemoved) {
    service_.reset();
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(options_.store.c_str(), &database));
    const auto* drop = "DROP TABLE id_tokens; DROP TABLE sessions; CREATE TABLE sessions"
                       " (id INTEGER PRIMARY KEY, uid TEXT NOT NULL, refresh_token_hash TEXT NOT"
                       " NULL UNIQUE, revocation TEXT NOT NULL DEFAULT '', has_ended INTEGER NOT"
                       " NULL DEFAULT 0)";
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, drop, nullptr, nullptr, nullptr));
    sqlite3_close(database);

    start();

    EXPECT_EQ("", refusal(service_->signIn(firstUid)));
}

TEST_F(SessionsTest, OtherTokensAreNotAcceptedAsIDTokens) {
    options_.tokens = {"given"};
    start();
    const auto session = service_->signIn(firstUid);

    EXPECT_EQ("401 unauthorized", answerTo(session.refreshToken));
    EXPECT_EQ("401 unauthorized", answerTo(customToken()));
    EXPECT_EQ("INVALID_REFRESH_TOKEN", identityMessage(refreshWith(session.idToken)));
    EXPECT_EQ("INVALID_CUSTOM_TOKEN", identityMessage(signInWith(session.refreshToken)));
}

TEST_F(SessionsTest, RefusesAnAlteredIDToken) {
    const auto session = service_->signIn(firstUid);
    EXPECT_EQ("200", answerTo(session.idToken));

    EXPECT_EQ("401 unauthorized", answerTo(session.idToken + "a"));
    EXPECT_EQ("401 unauthorized", answerTo(session.idToken.substr(0, session.idToken.size() - 1)));
}

TEST_F(SessionsTest, ARevokedSessionCannotBeRefreshed) {
    const auto first = service_->signIn(firstUid);
    const auto second = service_->signIn(secondUid);

    EXPECT_EQ(1U, service_->revokeSessions(firstUid, "TOKEN_REVOKED"));

    EXPECT_EQ("TOKEN_REVOKED", refusal(first));
    EXPECT_EQ("200", answerTo(first.idToken));
    EXPECT_EQ("", refusal(second));
    EXPECT_EQ("", refusal(service_->signIn(firstUid)));
}

TEST_F(SessionsTest, AllCanBeRevokedAtOnce) {
    const auto first = service_->signIn(firstUid);
    const auto second = service_->signIn(secondUid);

    EXPECT_EQ(2U, service_->revokeSessions());

    EXPECT_EQ("TOKEN_EXPIRED", refusal(first));
    EXPECT_EQ("TOKEN_EXPIRED", refusal(second));
}

TEST_F(SessionsTest, RevokingCanEndIDTokensToo) {
    const auto session = service_->signIn(firstUid);

    service_->revokeSessions(firstUid, "INVALID_GRANT", true);

    EXPECT_EQ("401 session_expired", answerTo(session.idToken));
    EXPECT_EQ("INVALID_GRANT", refusal(session));
}

TEST_F(SessionsTest, OneIDTokenCanBeExpired) {
    const auto first = service_->signIn(firstUid);
    const auto second = service_->signIn(firstUid);

    service_->expireToken(first.idToken);

    EXPECT_EQ("401 session_expired", answerTo(first.idToken));
    EXPECT_EQ("200", answerTo(second.idToken));
}

TEST_F(SessionsTest, AllIDTokensCanBeExpired) {
    const auto session = service_->signIn(firstUid);

    EXPECT_EQ(1U, service_->expireIDTokens());

    EXPECT_EQ("401 unauthorized", answerTo(session.idToken));
    EXPECT_EQ("200", answerTo(textAt(refreshWith(session.refreshToken).json(), "id_token")));
}

TEST_F(SessionsTest, ADisabledUserNeitherSignsInNorRefreshes) {
    const auto session = service_->signIn(firstUid);
    const auto token = customToken();
    service_->setUserDisabled(firstUid);

    EXPECT_EQ("USER_DISABLED", refusal(session));
    EXPECT_EQ("USER_DISABLED", identityMessage(signInWith(token)));
    EXPECT_EQ("", refusal(service_->signIn(secondUid)));

    service_->setUserDisabled(firstUid, false);
    EXPECT_EQ("", refusal(session));
}

TEST_F(SessionsTest, SurviveARestart) {
    const auto session = service_->signIn(firstUid);
    const auto revoked = service_->signIn(secondUid);
    service_->revokeSessions(secondUid, "TOKEN_REVOKED");

    start();

    EXPECT_EQ("200", answerTo(session.idToken));
    EXPECT_EQ("", refusal(session));
    EXPECT_EQ(firstUid, bearer(session.idToken).get(profilePath).data().at("uid"));
    EXPECT_EQ("TOKEN_REVOKED", refusal(revoked));
}

TEST_F(SessionsTest, SessionsOfARemovedAccountCannotBeRefreshed) {
    const auto session = service_->signIn(firstUid);
    options_.accounts = {{secondUid, std::nullopt, std::nullopt}};

    start();

    EXPECT_EQ("USER_NOT_FOUND", refusal(session));
    EXPECT_EQ("no_account", bearer(session.idToken).get(profilePath).code());
    EXPECT_THROW(static_cast<void>(service_->signIn(firstUid)), service::IdentityRefusal);
}

TEST_F(SessionsTest, CreatesMissingTables) {
    service_.reset();
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(options_.store.c_str(), &database));
    const auto* drop = "DROP TABLE id_tokens; DROP TABLE sessions";
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, drop, nullptr, nullptr, nullptr));
    sqlite3_close(database);

    start();

    EXPECT_EQ("", refusal(service_->signIn(firstUid)));
}

TEST_F(SessionsTest, NoFileHoldsASecret) {
    const auto page = choose("account=sample-account-1").body + service_->mintPageLink();
    const auto session = signInWith(customToken()).json();
    const auto refreshed = refreshWith(textAt(session, "refreshToken"));
    ASSERT_THAT(secretsIn(page + refreshed.body), Not(IsEmpty()));

    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_.path())) {
        if (entry.is_regular_file()) {
            EXPECT_THAT(secretsIn(contentOf(entry.path())), IsEmpty()) << entry.path();
        }
    }
}

TEST_F(SessionsTest, NeitherCaptureNorLogHoldsASecret) {
    options_.capture = directory_ / "traffic";
    std::string log;
    options_.log = [&log](std::string_view line) {
        log.append(line).append("\n");
    };
    start();

    const auto page = choose("account=sample-account-1").body;
    const auto code = secretsIn(page).at(0);
    const auto custom = textAt(exchange(code).data(), "customToken");
    const auto session = signInWith(custom, "?key=some-api-key").json();
    const auto idToken = textAt(session, "idToken");
    ASSERT_EQ(
        "200", answerTo(textAt(refreshWith(textAt(session, "refreshToken")).json(), "id_token")));
    ASSERT_EQ(200, bearer(idToken).get(profilePath).status);
    // Secrets at a path that expects none, in the query and in the body.
    static_cast<void>(clientWithoutToken().post("/api/v2/token?code=" + code, code + verifier));
    static_cast<void>(exchange(code));
    service_->stop();

    const auto traffic = contentOf(*options_.capture);
    for (const auto& text : {traffic, log}) {
        EXPECT_THAT(secretsIn(text), IsEmpty());
        EXPECT_THAT(text, Not(testing::HasSubstr(verifier)));
        EXPECT_THAT(text, Not(testing::HasSubstr("some-api-key")));
    }
    EXPECT_THAT(traffic, testing::HasSubstr("POST /identity/v1/token\r\n"));
    EXPECT_EQ(
        "POST /link 200\n"
        "POST /api/v1/auth/device/token 200\n"
        "POST /identity/v1/accounts:signInWithCustomToken 200\n"
        "POST /identity/v1/token 200\n"
        "POST /api/v1/context/handle-digest 200\n"
        "GET /api/v1/profile 200\n"
        "POST (unknown path) 404\n"
        "POST /api/v1/auth/device/token 400\n",
        log);
}

} // namespace
} // namespace orvel::test
