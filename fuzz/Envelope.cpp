// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/Envelope.h"

#include "OrvelAgent/scan/IngestClient.h"
#include "core/messages/MessageRecord.h"
#include "fuzz/Check.h"

#include <boost/json/value_from.hpp>

using namespace orvel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto ack = decodeEnvelope<IngestClient::Ack>(text);
    const auto digest = decodeEnvelope<IngestClient::Digest>(text);
    const auto receipt = decodeEnvelope<IngestClient::DiagnosticsReceipt>(text);
    const auto record = decodeEnvelope<tavrin::MessageRecord>(text);
    if (ack && digest && receipt && record) {
        check(ack->error == record->error && ack->code == digest->code);
        check(ack->ok == receipt->ok);
    }
    // Records are also encoded, so check the round trip.
    if (record && record->data) {
        check(
            boost::json::value_to<tavrin::MessageRecord>(boost::json::value_from(*record->data)) ==
            *record->data);
    }
    return 0;
}
