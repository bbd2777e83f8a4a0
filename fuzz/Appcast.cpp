// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/Appcast.h"

#include "core/Text.h"
#include "core/UpdateStatement.h"
#include "fuzz/Check.h"
#include "platform/linux/update/UpdateError.h"
#include "platform/linux/update/UpdateOffer.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using namespace orvel;

namespace {

/// In place of Ed25519, whose signatures a fuzzer cannot make: accepts those that begin with zero,
/// and remembers what was accepted.
class Verifier final {
public:
    bool accepts(const UpdateSignature& signature, std::string_view bytes) {
        check(bytes.starts_with("orvel-update-item-1\nversion:"));
        if (signature.front() != 0) {
            return false;
        }
        accepted_.emplace_back(bytes);
        return true;
    }

    /// Whether one accepted item has all fields of the offer.
    [[nodiscard]] bool hasAccepted(const UpdateOffer& offer, const UpdateCriteria& criteria) const {
        const std::string lines = line("system", "linux") +
                                  line("architecture", criteria.architecture) +
                                  line("type", criteria.type) + line("url", offer.url);
        return std::ranges::any_of(accepted_, [&](const std::string& bytes) {
            return bytes.find("\n" + line("version", offer.update.version)) != std::string::npos &&
                   bytes.find("\n" + lines) != std::string::npos;
        });
    }

private:
    static std::string line(std::string_view name, std::string_view value) {
        std::string line(name);
        line.append(":").append(std::to_string(value.size()));
        return line.append(":").append(value).append("\n");
    }

    std::vector<std::string> accepted_;
};

const UpdateCriteria& criteria() {
    static const UpdateCriteria criteria{
        *UpdateVersion::parse("1.0"),
        "x86_64",
        "application/vnd.appimage",
        *UpdateVersion::parse("2.36")};
    return criteria;
}

void checkItem(const AppcastItem& item) {
    const auto fits = [](std::string_view text) {
        return text.size() <= tavrin::maximumUpdateFieldBytes + 1;
    };
    check(item.description.size() <= tavrin::maximumUpdateNotesBytes + 1);
    check(fits(item.version) && fits(item.shortVersion) && fits(item.channel));
    check(fits(item.minimumSystemVersion));
    if (item.enclosure) {
        check(fits(item.enclosure->url) && fits(item.enclosure->type));
        check(fits(item.enclosure->length) && fits(item.enclosure->signature));
        check(fits(item.enclosure->system) && fits(item.enclosure->architecture));
        check(fits(item.enclosure->sha256) && fits(item.enclosure->itemSignature));
    }
}

void checkOffer(const UpdateOffer& offer, const Verifier& verifier) {
    check(offer.version > criteria().current);
    check(offer.version.text() == offer.update.version);
    check(offer.url.starts_with("https://"));
    check(offer.update.length > 0 && offer.update.length <= maximumUpdateBytes);
    check(tavrin::isValidUTF8(offer.update.displayVersion));
    check(tavrin::isValidUTF8(offer.update.releaseNotes));
    check(verifier.hasAccepted(offer, criteria()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto items = parseAppcast({reinterpret_cast<const char*>(data), size});
        check(items.size() <= maximumAppcastItems);
        for (const AppcastItem& item : items) {
            checkItem(item);
        }
        Verifier verifier;
        const auto offer = newestUpdate(
            items, criteria(), [&verifier](const UpdateSignature& signature, auto bytes) {
                return verifier.accepts(signature, bytes);
            });
        if (offer) {
            checkOffer(*offer, verifier);
        }
    } catch (const UpdateError&) {
        // An invalid feed must be refused with this error type only.
    }
    return 0;
}
