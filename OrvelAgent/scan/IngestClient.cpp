// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/IngestClient.h"

#include "core/JSON.h"

#include <boost/json/array.hpp>

#include <utility>

namespace orvel {

IngestClient::IngestClient(APIClient client, const std::string& version)
    : client_(std::move(client)), clientName_("mac/" + version) {}

IngestClient IngestClient::authorizedBy(const AccountSession& session) const {
    IngestClient client = *this;
    client.client_ = client_.authorizedBy(session);
    return client;
}

QCoro::Task<IngestClient::Ack> IngestClient::upload(
    std::shared_ptr<const Records> records,
    std::int64_t watermark,
    tavrin::CancellationToken cancellation) const {
    auto payload = std::make_shared<Payload>();
    payload->source = "imessage";
    payload->client = clientName_;
    payload->records = std::move(records);
    payload->watermark = watermark;
    return client_.send<Ack, Payload>(
        "/api/v1/context/ingest", "POST", std::move(payload), std::move(cancellation));
}

QCoro::Task<std::unordered_set<std::string>>
IngestClient::fetchKnownHandleHints(tavrin::CancellationToken cancellation) const {
    const auto body = std::make_shared<const Empty>();
    Digest digest = co_await client_.send<Digest, Empty>(
        "/api/v1/context/handle-digest", "POST", body, std::move(cancellation));
    std::unordered_set<std::string> hints;
    hints.reserve(digest.hints.size());
    for (std::string& hint : digest.hints) {
        hints.insert(std::move(hint));
    }
    co_return hints;
}

QCoro::Task<> IngestClient::sendDiagnostics(
    std::vector<std::string> lines, tavrin::CancellationToken cancellation) const {
    auto body = std::make_shared<Diagnostics>();
    body->client = clientName_;
    body->lines = std::move(lines);
    try {
        co_await client_.send<DiagnosticsReceipt, Diagnostics>(
            "/api/v1/context/diagnostics", "POST", std::move(body), std::move(cancellation));
    } catch (const std::exception&) {
        // Diagnostics are best effort.
    }
}

void tag_invoke(
    const boost::json::value_from_tag&,
    boost::json::value& json,
    const IngestClient::Payload& payload) {
    boost::json::object& object = json.emplace_object();
    object.reserve(4);
    object.emplace("source", payload.source);
    object.emplace("client", payload.client);
    boost::json::array& records =
        object.emplace("records", boost::json::array_kind).first->value().get_array();
    records.reserve(payload.records->size());
    for (const tavrin::MessageRecord& record : *payload.records) {
        tag_invoke(boost::json::value_from_tag(), records.emplace_back(nullptr), record);
    }
    object.emplace("watermark", payload.watermark);
}

void tag_invoke(
    const boost::json::value_from_tag&,
    boost::json::value& json,
    const IngestClient::Diagnostics& diagnostics) {
    boost::json::object& object = json.emplace_object();
    object.emplace("client", diagnostics.client);
    boost::json::array& lines =
        object.emplace("lines", boost::json::array_kind).first->value().get_array();
    for (const std::string& line : diagnostics.lines) {
        lines.emplace_back(line);
    }
}

IngestClient::Ack
tag_invoke(const boost::json::value_to_tag<IngestClient::Ack>&, const boost::json::value& json) {
    const boost::json::object& object = tavrin::asObject(json);
    IngestClient::Ack ack;
    ack.acceptedWatermark = tavrin::integerAt(object, "acceptedWatermark");
    ack.accepted = tavrin::integerAt(object, "accepted");
    ack.contactsTouched = tavrin::optionalIntegerAt(object, "contactsTouched");
    ack.activitiesWritten = tavrin::optionalIntegerAt(object, "activitiesWritten");
    ack.unknownCounterparty = tavrin::optionalIntegerAt(object, "unknownCounterparty");
    ack.bodiesIgnored = tavrin::optionalIntegerAt(object, "bodiesIgnored");
    return ack;
}

IngestClient::Digest
tag_invoke(const boost::json::value_to_tag<IngestClient::Digest>&, const boost::json::value& json) {
    return {tavrin::stringsAt(tavrin::asObject(json), "hints")};
}

IngestClient::DiagnosticsReceipt tag_invoke(
    const boost::json::value_to_tag<IngestClient::DiagnosticsReceipt>&,
    const boost::json::value& json) {
    return {tavrin::integerAt(tavrin::asObject(json), "received")};
}

} // namespace orvel
