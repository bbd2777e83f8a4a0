// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"
#include "core/MessageRecord.h"
#include "fuzz/Check.h"

#include <boost/json/parse.hpp>
#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>

using namespace tavrin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    boost::system::error_code error;
    const boost::json::value json = boost::json::parse(text, error);
    if (error) {
        return 0;
    }
    try {
        const auto record = boost::json::value_to<MessageRecord>(json);
        check(boost::json::value_to<MessageRecord>(boost::json::value_from(record)) == record);
    } catch (const JSONDecodingError&) {
        // What is no record must be refused with this error and no other.
    }
    return 0;
}
