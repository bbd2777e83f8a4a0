// SPDX-License-Identifier: Apache-2.0
#include "core/Date.h"
#include "core/Text.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Page.h"
#include "service/endpoints/Router.h"
#include "service/records/RecordStore.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace orvel::service {

namespace {

constexpr std::size_t shownBatches = 20;
constexpr std::size_t shownRecords = 100;
constexpr std::size_t shownCharacters = 500;

std::string figure(std::string_view name, std::int64_t value) {
    return "<div><dt>" + std::string(name) + "</dt><dd>" + std::to_string(value) + "</dd></div>\n";
}

std::string fixedCell(std::string_view text) {
    return R"(<td class="fixed">)" + escaped(text) + "</td>";
}

/// `dir="auto"` keeps right-to-left text from reordering its neighbours.
std::string textCell(std::string_view text) {
    return R"(<td class="text" dir="auto">)" + escaped(text) + "</td>";
}

std::string dimCell(std::string_view text) {
    return R"(<td class="dim">)" + escaped(text) + "</td>";
}

std::string tableStart(std::string_view title, std::initializer_list<std::string_view> columns) {
    std::string html = "<h2>" + std::string(title) + "</h2>\n<div class=\"wide\"><table>\n<tr>";
    for (const auto column : columns) {
        html += "<th>" + std::string(column) + "</th>";
    }
    return html + "</tr>\n";
}

constexpr std::string_view tableEnd = "</table></div>\n";

std::string people(const tavrin::MessageRecord& record) {
    std::string result;
    for (const auto& handle : record.participants) {
        result += result.empty() ? "" : ", ";
        const auto name = record.participantNames.find(handle);
        result +=
            name == record.participantNames.end() ? handle : name->second + " (" + handle + ")";
    }
    return result;
}

std::string bodyCell(const tavrin::MessageRecord& record) {
    if (record.body) {
        const auto start = tavrin::prefix(*record.body, shownCharacters);
        return textCell(std::string(start) + (start.size() < record.body->size() ? "…" : ""));
    }
    return dimCell(record.bodyUnavailable ? "text unavailable" : "no text");
}

std::string recordRow(const tavrin::MessageRecord& record) {
    return "<tr>" + fixedCell(tavrin::iso8601(record.sentAt)) +
           fixedCell(record.isFromMe ? "sent" : "received") + textCell(people(record)) +
           fixedCell(record.service.value_or("")) + bodyCell(record) +
           fixedCell(record.hasAttachments ? "yes" : "") + "</tr>\n";
}

std::string batchRow(const RecordStore::ReceivedBatch& batch) {
    return "<tr>" + fixedCell(batch.receivedAt) + fixedCell(batch.client) +
           fixedCell(std::to_string(batch.records)) + fixedCell(std::to_string(batch.newRecords)) +
           fixedCell(std::to_string(batch.watermark)) + "</tr>\n";
}

std::string page(const RecordStore& store) {
    const auto totals = store.totals();
    std::string html = pageStart("Orvel local service", PageWidth::Wide);
    html += "<dl>\n" + figure("Records", totals.records) + figure("Batches", totals.batches) +
            figure("Diagnostic lines", totals.diagnosticLines) + "</dl>\n";
    if (totals.batches == 0) {
        html += "<p class=\"dim\">Nothing has been received yet.</p>\n";
        return html.append(pageEnd);
    }
    html += tableStart("Latest batches", {"Received", "Client", "Records", "New", "Watermark"});
    for (const auto& batch : store.latestBatches(shownBatches)) {
        html += batchRow(batch);
    }
    html += tableEnd;
    html += tableStart(
        "Latest records", {"Time", "Direction", "Participants", "Service", "Text", "Attachments"});
    for (const auto& record : store.latestRecords(shownRecords)) {
        html += recordRow(record);
    }
    html += tableEnd;
    return html.append(pageEnd);
}

} // namespace

void addStatusEndpoints(Router& router, const RecordStore& store) {
    router.add("GET", "/", Router::Access::Page, [&store](const Request&) {
        return pageReply(page(store));
    });
}

} // namespace orvel::service
