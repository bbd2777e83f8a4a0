// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CollectionPreferences.h"
#include "tests/support/fakes/TestPlatform.h"

#include <boost/json/object.hpp>

#include <array>
#include <cstddef>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// The network, the identity provider and the service, with one account. Checks every request and
/// remembers what is stored.
class WeekService final {
public:
    /// Other states than `Online` are kinds of trouble.
    enum class Network { Online, Offline, CaptivePortal, Overloaded, Down, Silent, RepliesLost };

    /// Whom a conversation is with: somebody whom the service knows, another address of the same
    /// card in the address book, or a stranger.
    enum class Chat { Known, OnSameCard, Stranger };
    static constexpr std::array handles{"+14155550134", "ada@example.com", "+14155550199"};

    /// Answers all requests of the platform, which must outlive them, and stores a session in its
    /// keychain.
    WeekService(TestPlatform& with, std::mt19937& random, tavrin::ThreadScope scope);
    WeekService(const WeekService&) = delete;
    WeekService& operator=(const WeekService&) = delete;

    void setNetwork(Network network) { network_ = network; }
    [[nodiscard]] Network network() const { return network_; }

    /// Later requests of the session are refused.
    void endSession() { hasSessionEnded_ = true; }
    [[nodiscard]] bool hasSessionEnded() const { return hasSessionEnded_; }

    /// Returns the guid of a new message.
    std::string addMessage(Chat chat);
    [[nodiscard]] std::size_t messageCount() const { return messages_.size(); }

    /// From now on the address book may be unreadable. Messages that are sent meanwhile may be sent
    /// again when the agent has read it again.
    void beginContactsGap();
    /// The agent returns to the messages of the gap.
    void endContactsGap() { isContactsGapOpen_ = false; }

    /// Requests since the start, without refreshes of the token.
    [[nodiscard]] std::size_t requests() const { return requests_; }
    [[nodiscard]] std::size_t refreshes() const { return refreshes_; }
    /// The most requests in one hour of the clock, without batches.
    [[nodiscard]] std::size_t mostRequestsInAnHour() const { return mostRequestsInAnHour_; }
    /// Batches with replies that were lost.
    [[nodiscard]] std::size_t lostReplies() const { return lostReplies_; }

    /// The violations, without those that were already taken.
    [[nodiscard]] std::vector<std::string> takeFindings();
    /// What should be stored and is not.
    [[nodiscard]] std::optional<std::string> missing() const;

private:
    struct Message {
        Chat chat = Chat::Known;
        bool isStored = false;
        /// Since when the agent knows that.
        std::optional<tavrin::Seconds> confirmedAt;
    };
    struct Token {
        int session = 0;
        double expiry = 0;
    };

    FakeURLSession::Answer answer(const URLRequest& request);
    FakeURLSession::Answer trueAnswer(const URLRequest& request);
    FakeURLSession::Answer answerPortal();
    FakeURLSession::Answer answerAuthorized(const URLRequest& request);
    URLResponse answerUpload(const URLRequest& request);
    void store(const boost::json::object& record);
    URLResponse
    tokens(std::string_view idToken, std::string_view refreshToken, std::string_view expiry);
    static std::optional<Token> tokenOf(const URLRequest& request);
    void count(const URLRequest& request);
    void find(std::string what);
    int pick(int count) { return std::uniform_int_distribution<>(0, count - 1)(random_); }
    [[nodiscard]] bool isInScope(Chat chat) const {
        return chat != Chat::Stranger || scope_ == tavrin::ThreadScope::AllThreads;
    }

    TestPlatform& with_;
    std::mt19937& random_;
    const tavrin::ThreadScope scope_;
    Network network_ = Network::Online;
    int session_ = 1;
    bool hasSessionEnded_ = false;
    std::vector<Message> messages_;
    std::optional<tavrin::Seconds> contactsGap_;
    bool isContactsGapOpen_ = false;
    std::size_t requests_ = 0;
    std::size_t refreshes_ = 0;
    std::size_t lostReplies_ = 0;
    long hour_ = 0;
    std::size_t requestsInHour_ = 0;
    std::size_t mostRequestsInAnHour_ = 0;
    std::vector<std::string> findings_;
};

} // namespace orvel::test
