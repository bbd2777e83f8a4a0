// SPDX-License-Identifier: Apache-2.0
#include "bench/PayloadSizes.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/network/JSONCoding.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tools/sample/SampleMessagesDatabase.h"

#include <QCoreApplication>

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::bench {

namespace {

namespace fs = std::filesystem;
using test::FakeService;

constexpr std::string_view bearer = "Bearer ";

/// As libcurl writes it.
double wireBytes(const URLRequest& request, std::size_t tokenBytes) {
    const std::size_t host = request.url.find("//") + 2;
    const std::size_t path = request.url.find('/', host);
    std::string head = fmt::format(
        "{} {} HTTP/1.1\r\nHost: {}\r\nAccept: */*\r\n",
        request.method,
        request.url.substr(path),
        request.url.substr(host, path - host));
    for (const auto& [name, value] : request.headers) {
        const bool isToken = value.starts_with(bearer);
        head += fmt::format(
            "{}: {}\r\n",
            name,
            isToken ? std::string(bearer) + std::string(tokenBytes, 'x') : value);
    }
    const std::size_t body = request.body.value_or("").size();
    if (request.body) {
        head += fmt::format("Content-Length: {}\r\n", body);
    }
    return static_cast<double>(head.size() + 2 + body);
}

/// An agent over a sample database, with fakes for the platform.
class SampleAgent final {
public:
    SampleAgent(const fs::path& directory, std::int64_t messages)
        : database_(directory / "payloads" / "chat.db") {
        content_.chatCount = SampleMessages::chatCountFor(messages);
        SampleMessagesDatabase::create(
            database_, {.content = content_, .messageCount = messages, .overwrites = true});
        const SampleConversations conversations(content_.seed, content_.chatCount);
        with_.service.hints = conversations.knownHandleHints();
        for (const SampleConversations::Person& person : conversations.people()) {
            if (person.isInAddressBook) {
                with_.addressBook.cards.push_back(cardOf(person));
            }
        }
        with_.motionPreference.setReducesMotion(true);
        with_.storeSession();
        CollectorService::Options options;
        options.sourcePath = database_.string();
        model_.emplace(with_.platform, with_.updatePresenter, options);
        finishScan();
    }

    /// With a device token and a profile, which a stored session does not need.
    void signIn() {
        with_.letTheUserSignIn();
        const QCoro::Task<> task = model_->auth().signIn();
        while (!task.isReady()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }

    void scanAgain() {
        with_.clock.advance(CollectionLoop::scanInterval);
        finishScan();
    }

    [[nodiscard]] std::vector<URLRequest> requestsTo(std::string_view path) const {
        std::vector<URLRequest> found;
        for (const URLRequest& request : with_.urlSession.requests()) {
            if (request.url.find(path) != std::string::npos) {
                found.push_back(request);
            }
        }
        return found;
    }

    [[nodiscard]] const FakeService& service() const { return with_.service; }
    /// The rows of the last scan.
    [[nodiscard]] std::int64_t examined() { return model_->collector().history().front().scanned; }

private:
    static ContactCard cardOf(const SampleConversations::Person& person) {
        ContactCard card;
        card.givenName = person.givenName;
        card.familyName = person.familyName;
        card.phoneNumbers = {person.phone};
        card.emailAddresses = {person.email};
        return card;
    }

    /// Runs until the agent waits for its next scan.
    void finishScan() {
        while (with_.clock.untilNextTimer() != CollectionLoop::scanInterval) {
            if (const auto pause = with_.clock.untilNextTimer()) {
                with_.clock.advance(*pause);
            }
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        if (model_->collector().lastError()) {
            throw std::runtime_error("The scan failed: " + *model_->collector().lastError());
        }
    }

    const fs::path database_;
    SampleMessages::Options content_;
    test::TestPlatform with_;
    std::optional<AppModel> model_;
};

/// An upload without records.
std::string emptyUpload(const std::string& client) {
    IngestClient::Payload payload;
    payload.source = "imessage";
    payload.client = client;
    payload.records = std::make_shared<const IngestClient::Records>();
    return JSONEncoder().encode(payload);
}

} // namespace

PayloadSizes
measurePayloads(const fs::path& directory, std::int64_t messages, std::size_t tokenBytes) {
    using Call = Fleet::Call;
    SampleAgent agent(directory, messages);
    const std::int64_t examined = agent.examined();
    const auto records = static_cast<double>(agent.service().guids().size());
    PayloadSizes sizes;
    sizes.uploadedShare = records / static_cast<double>(examined);

    const std::vector<URLRequest> uploads = agent.requestsTo(FakeService::ingestPath);
    URLRequest empty = uploads.front();
    empty.body = emptyUpload("mac/1.2.3");
    sizes.of(Call::Ingest) = wireBytes(empty, tokenBytes);
    for (const URLRequest& upload : uploads) {
        sizes.record += (wireBytes(upload, tokenBytes) - sizes.of(Call::Ingest)) / records;
    }

    // The log of the last twenty minutes then contains two scans, as it usually does.
    agent.scanAgain();
    agent.scanAgain();
    agent.scanAgain();
    agent.signIn();
    const auto sizeOfLast = [&](std::string_view path) {
        return wireBytes(agent.requestsTo(path).back(), tokenBytes);
    };
    sizes.of(Call::Digest) = sizeOfLast(FakeService::digestPath);
    sizes.of(Call::Diagnostics) = sizeOfLast(FakeService::diagnosticsPath);
    sizes.of(Call::DeviceToken) = sizeOfLast(FakeService::deviceTokenPath);
    sizes.of(Call::Profile) = sizeOfLast(FakeService::profilePath);

    for (const std::string& hint : agent.service().hints) {
        const std::size_t text = hint.size() + std::string_view("\"\",").size();
        sizes.hint += static_cast<double>(text) / static_cast<double>(agent.service().hints.size());
    }
    return sizes;
}

} // namespace orvel::bench
