// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/LocalService.h"
#include "tests/service/Client.h"
#include "tests/support/TemporaryDirectory.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace orvel::test {

inline constexpr const char* ingestPath = "/api/v1/context/ingest";
inline constexpr const char* digestPath = "/api/v1/context/handle-digest";
inline constexpr const char* diagnosticsPath = "/api/v1/context/diagnostics";

/// A record as JSON, as the agent sends it.
inline boost::json::object recordJSON(std::string_view guid) {
    return {
        {"guid", guid},
        {"rowID", 7},
        {"chatGUID", "iMessage;-;+14155550100"},
        {"participants", {"+14155550100"}},
        {"participantNames", boost::json::object()},
        {"participantEmails", boost::json::object()},
        {"isFromMe", false},
        {"sentAt", "2024-03-09T17:05:42Z"},
        {"isGroupThread", false},
        {"hasAttachments", false},
        {"associatedMessageType", 0},
        {"bodyUnavailable", false},
    };
}

inline boost::json::object batchJSON(boost::json::array records) {
    return {
        {"source", "imessage"},
        {"client", "mac/1.2.3"},
        {"records", std::move(records)},
        {"watermark", 4711},
    };
}

/// A batch of records that differ only in their guid.
inline std::string batch(std::initializer_list<std::string_view> guids) {
    boost::json::array records;
    for (const auto guid : guids) {
        records.push_back(recordJSON(guid));
    }
    return boost::json::serialize(batchJSON(std::move(records)));
}

/// A service in a temporary directory, not yet started.
class ServiceTest : public testing::Test {
protected:
    ServiceTest() {
        options_.store = directory_ / "records.sqlite";
        options_.certificates = directory_ / "certificates";
        options_.tokens = {Client().token};
    }

    /// Starts or restarts the service with the current `options_`.
    void start() {
        service_.reset();
        service_ = std::make_unique<service::LocalService>(options_);
        service_->start();
        cookie_ = service_->openPages();
    }

    /// Sends an accepted token and the cookie of a browser that may see the pages.
    [[nodiscard]] Client client() const {
        Client client;
        client.cookie = cookie_;
        client.url = service_->url();
        client.caFile = service_->caFile();
        return client;
    }

    TemporaryDirectory directory_;
    service::LocalService::Options options_;
    std::unique_ptr<service::LocalService> service_;

private:
    std::string cookie_;
};

} // namespace orvel::test
