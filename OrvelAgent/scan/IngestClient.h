// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/network/APIClient.h"
#include "OrvelAgent/network/AccountSession.h"
#include "core/CancellationToken.h"
#include "core/messages/MessageRecord.h"

#include <QCoroTask>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace orvel {

/// Uploads batches, fetches the known handles and sends diagnostics. Copyable, like its
/// `APIClient`.
class IngestClient final {
public:
    static constexpr tavrin::Seconds requestTimeout{300};

    using Records = std::vector<tavrin::MessageRecord>;

    /// The body of one upload.
    struct Payload {
        static constexpr std::array<std::string_view, 4> publicKeys = {
            "source", "client", "service", "sentAt"};

        std::string source;
        std::string client;
        std::shared_ptr<const Records> records;
        /// The highest row id of the batch.
        std::int64_t watermark = 0;
    };

    /// The reply to one upload.
    struct Ack {
        std::int64_t acceptedWatermark = 0;
        std::int64_t accepted = 0;
        std::optional<std::int64_t> contactsTouched;
        std::optional<std::int64_t> activitiesWritten;
        std::optional<std::int64_t> unknownCounterparty;
        std::optional<std::int64_t> bodiesIgnored;
    };

    /// The reply with the known handles, as match hints.
    struct Digest {
        std::vector<std::string> hints;
    };

    /// The body of the diagnostics call.
    struct Diagnostics {
        static constexpr std::array<std::string_view, 1> publicKeys = {"client"};

        std::string client;
        std::vector<std::string> lines;
    };

    /// The reply to the diagnostics call.
    struct DiagnosticsReceipt {
        std::int64_t received = 0;
    };

    /// `version` is the application's short version string.
    IngestClient(APIClient client, const std::string& version);

    /// A copy whose requests carry the tokens of a session. A request without a token is not sent.
    [[nodiscard]] IngestClient authorizedBy(const AccountSession& session) const;

    /// Scheme, host and port of the service.
    [[nodiscard]] const std::string& service() const { return client_.baseURL(); }

    /// Uploads one batch, in one attempt. Throws the errors of `APIClient::send`.
    QCoro::Task<Ack> upload(
        std::shared_ptr<const Records> records,
        std::int64_t watermark,
        tavrin::CancellationToken cancellation = {}) const;

    /// The handles that the service knows. Throws the errors of `APIClient::send`.
    QCoro::Task<std::unordered_set<std::string>>
    fetchKnownHandleHints(tavrin::CancellationToken cancellation = {}) const;

    /// Ignores all errors.
    QCoro::Task<> sendDiagnostics(
        std::vector<std::string> lines, tavrin::CancellationToken cancellation = {}) const;

private:
    APIClient client_;
    std::string clientName_;
};

void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const IngestClient::Payload&);
void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const IngestClient::Diagnostics&);
// These throw `tavrin::JSONDecodingError` if a required key is missing or a type is wrong.
IngestClient::Ack
tag_invoke(const boost::json::value_to_tag<IngestClient::Ack>&, const boost::json::value& json);
IngestClient::Digest
tag_invoke(const boost::json::value_to_tag<IngestClient::Digest>&, const boost::json::value& json);
IngestClient::DiagnosticsReceipt tag_invoke(
    const boost::json::value_to_tag<IngestClient::DiagnosticsReceipt>&,
    const boost::json::value& json);

} // namespace orvel
