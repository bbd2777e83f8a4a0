// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"
#include "core/Text.h"
#include "fuzz/Check.h"
#include "platform/linux/storage/PlistBundle.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto information =
            orvel::PlistBundle::parse({reinterpret_cast<const char*>(data), size});
        for (const auto& [key, value] : information) {
            check(tavrin::isValidUTF8(key) && tavrin::isValidUTF8(value));
        }
    } catch (const tavrin::PlatformError&) {
        // An invalid property list must be refused with this error type only.
    }
    return 0;
}
