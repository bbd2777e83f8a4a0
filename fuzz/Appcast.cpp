// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/Appcast.h"

#include "core/Text.h"
#include "fuzz/Check.h"
#include "platform/linux/update/UpdateError.h"
#include "platform/linux/update/UpdateOffer.h"

#include <cstdint>
#include <optional>
#include <string_view>

using namespace orvel;

namespace {

void checkOffer(const UpdateOffer& offer, const UpdateCriteria& criteria) {
    check(offer.version > criteria.current && offer.version > *criteria.skipped);
    check(offer.version.text() == offer.update.version);
    check(offer.url.starts_with("https://"));
    check(offer.update.length > 0 && offer.update.length <= maximumUpdateBytes);
    check(tavrin::isValidUTF8(offer.update.displayVersion));
    check(tavrin::isValidUTF8(offer.update.releaseNotes));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto items = parseAppcast({reinterpret_cast<const char*>(data), size});
        const UpdateCriteria criteria{
            *UpdateVersion::parse("1.0"),
            UpdateVersion::parse("1.1"),
            "x86_64",
            "application/vnd.appimage",
            *UpdateVersion::parse("2.36")};
        if (const auto offer = newestUpdate(items, criteria)) {
            checkOffer(*offer, criteria);
        }
    } catch (const UpdateError&) {
        // An invalid feed must be refused with this error type only.
    }
    return 0;
}
