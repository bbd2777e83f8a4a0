// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"
#include "core/messages/MessageRecord.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Router.h"
#include "service/http/Envelope.h"
#include "service/records/KnownHandles.h"
#include "service/records/RecordStore.h"

#include <boost/json.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::service {

namespace {

namespace json = boost::json;

constexpr std::size_t maxRecords = 1000;
constexpr std::size_t maxLines = 20'000;
constexpr std::size_t maxClientSize = 100;

std::string clientOf(const json::object& body) {
    constexpr std::string_view prefix = "mac/";
    auto client = tavrin::stringAt(body, "client");
    if (!client.starts_with(prefix) || client.size() == prefix.size() ||
        client.size() > maxClientSize) {
        throw Refusal::invalidRequest(R"("client" must be "mac/" and a version.)");
    }
    return client;
}

const json::array& arrayAt(const json::object& body, std::string_view key, std::size_t limit) {
    const auto* value = body.if_contains(key);
    const auto* array = value == nullptr ? nullptr : value->if_array();
    if (array == nullptr) {
        throw Refusal::invalidRequest("\"" + std::string(key) + "\" must be an array.");
    }
    if (array->size() > limit) {
        throw Refusal::invalidRequest(
            "\"" + std::string(key) + "\" must hold at most " + std::to_string(limit) + " items.");
    }
    return *array;
}

tavrin::MessageRecord recordOf(const json::value& value, std::size_t index) {
    const auto refusal = [index](std::string_view problem) {
        return Refusal::invalidRequest(
            "Record " + std::to_string(index) + " is not valid: " + std::string(problem));
    };
    try {
        return json::value_to<tavrin::MessageRecord>(value);
    } catch (const tavrin::JSONDecodingError& error) {
        throw refusal(error.what());
    }
}

/// Counts the known contacts and the unknown records of a batch.
class ContactStatistics final {
public:
    explicit ContactStatistics(const KnownHandles& known) : known_(known) {}

    void add(const tavrin::MessageRecord& record) {
        bool isKnown = false;
        const auto lookUp = [&](const std::string& handle) {
            if (const auto* hint = known_.find(handle)) {
                contactsTouched_.insert(*hint);
                isKnown = true;
            }
        };
        std::ranges::for_each(record.participants, lookUp);
        if (record.senderHandle) {
            lookUp(*record.senderHandle);
        }
        unknownRecords_ += isKnown ? 0 : 1;
    }

    [[nodiscard]] std::size_t contactsTouched() const { return contactsTouched_.size(); }
    [[nodiscard]] std::size_t unknownRecords() const { return unknownRecords_; }

private:
    const KnownHandles& known_;
    std::set<std::string_view> contactsTouched_;
    std::size_t unknownRecords_ = 0;
};

/// Does not accept records without a guid.
Reply ingest(const Request& request, RecordStore& store, const KnownHandles& knownHandles) {
    json::monotonic_resource memory;
    const auto body = jsonBody(request, &memory);
    if (tavrin::stringAt(body, "source") != "imessage") {
        throw Refusal::invalidRequest(R"("source" must be "imessage".)");
    }
    RecordStore::Batch batch;
    batch.client = clientOf(body);
    batch.watermark = tavrin::integerAt(body, "watermark");
    ContactStatistics contacts(knownHandles);
    for (std::size_t index = 0; const auto& value : arrayAt(body, "records", maxRecords)) {
        auto record = recordOf(value, index++);
        if (record.guid.empty()) {
            // Not recognizable when it is sent again. Refusing the batch for it would block the
            // records of all others for good.
            continue;
        }
        contacts.add(record);
        batch.items.push_back({std::move(record.guid), json::serialize(value)});
    }
    const auto added = store.add(batch);
    return success({
        {"acceptedWatermark", batch.watermark},
        {"accepted", batch.items.size()},
        {"contactsTouched", contacts.contactsTouched()},
        {"activitiesWritten", added},
        {"unknownCounterparty", contacts.unknownRecords()},
        {"bodiesIgnored", 0},
    });
}

Reply handleDigest(const Request& request, const KnownHandles& knownHandles) {
    static_cast<void>(jsonBody(request));
    json::array hints;
    for (const auto& hint : knownHandles.hints()) {
        hints.emplace_back(hint);
    }
    return success({{"hints", std::move(hints)}});
}

Reply diagnostics(const Request& request, RecordStore& store) {
    const auto body = jsonBody(request);
    const auto client = clientOf(body);
    static_cast<void>(arrayAt(body, "lines", maxLines));
    const auto lines = tavrin::stringsAt(body, "lines");
    store.addDiagnostics(client, lines);
    return success({{"received", lines.size()}});
}

} // namespace

void addContextEndpoints(Router& router, RecordStore& store, const KnownHandles& knownHandles) {
    using enum Router::Access;
    router.add(
        "POST",
        "/api/v1/context/ingest",
        BearerToken,
        [&store, &knownHandles](const Request& request) {
            return ingest(request, store, knownHandles);
        });
    router.add(
        "POST",
        "/api/v1/context/handle-digest",
        BearerToken,
        [&knownHandles](const Request& request) { return handleDigest(request, knownHandles); });
    router.add(
        "POST", "/api/v1/context/diagnostics", BearerToken, [&store](const Request& request) {
            return diagnostics(request, store);
        });
}

} // namespace orvel::service
