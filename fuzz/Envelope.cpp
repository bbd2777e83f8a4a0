// SPDX-License-Identifier: Apache-2.0
// The first byte of an input selects the type of the reply.
#include "OrvelAgent/network/Envelope.h"

#include "OrvelAgent/account/Session.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "core/Text.h"
#include "core/messages/MessageRecord.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <boost/json/value_from.hpp>

#include <cmath>
#include <string>

using namespace orvel;

namespace {

/// The members of every type.
template <typename Reply>
std::optional<Reply> decode(std::string_view text) {
    auto envelope = decodeEnvelope<Reply>(text);
    if (!envelope) {
        return std::nullopt;
    }
    check(!envelope->error || tavrin::isValidUTF8(*envelope->error));
    check(!envelope->code || tavrin::isValidUTF8(*envelope->code));
    return std::move(envelope->data);
}

void checkRecord(const tavrin::MessageRecord& record) {
    // Records are also encoded, with whole seconds.
    tavrin::MessageRecord expected = record;
    expected.sentAt =
        tavrin::Date(tavrin::Seconds(std::floor(record.sentAt.time_since_epoch().count())));
    check(
        boost::json::value_to<tavrin::MessageRecord>(boost::json::value_from(record)) == expected);
}

/// A text that the user sees.
void checkShown(const std::optional<std::string>& text) {
    check(!text || tavrin::isValidUTF8(*text));
    check(!text || *text == tavrin::shownText(*text));
}

void checkReply(char type, std::string_view text) {
    switch (type) {
    case 'a':
        decode<IngestClient::Ack>(text);
        break;
    case 'd':
        if (const auto digest = decode<IngestClient::Digest>(text)) {
            for (const std::string& hint : digest->hints) {
                check(tavrin::isValidUTF8(hint));
            }
        }
        break;
    case 'r':
        decode<IngestClient::DiagnosticsReceipt>(text);
        break;
    case 'p':
        if (const auto profile = decode<Profile>(text)) {
            checkShown(profile->email);
            checkShown(profile->handle);
            check(!profile->handle || !profile->handle->empty());
            Session session;
            session.merge(*profile);
            check(session.uid == profile->uid && session.handle == profile->handle);
        }
        break;
    default:
        if (const auto record = decode<tavrin::MessageRecord>(text)) {
            checkRecord(*record);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const char type = static_cast<char>(input.byte());
    checkReply(type, input.rest());
    return 0;
}
