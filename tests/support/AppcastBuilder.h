// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UpdateStatement.h"
#include "tests/support/UpdateSigner.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

/// Writes update feeds, including incomplete and invalid ones.
class AppcastBuilder final {
public:
    /// One item, complete for an AppImage of 64-bit PCs. Signed as it is, unless it is given
    /// another signature or none.
    class Item final {
    public:
        Item(
            std::string version,
            std::string url,
            const std::string& update,
            const UpdateSigner& signer)
            : version_(std::move(version)),
              signer_(signer),
              attributes_{
                  {"url", std::move(url)},
                  {"length", std::to_string(update.size())},
                  {"type", "application/vnd.appimage"},
                  {"sparkle:edSignature", signer.signature(update)},
                  {"orvel:sha256", UpdateSigner::sha256(update)},
                  {"sparkle:os", "linux"},
                  {"sparkle:arch", "x86_64"}} {}

        /// Sets an attribute of the enclosure.
        Item& with(const std::string& attribute, std::string value) {
            attributes_[attribute] = std::move(value);
            return *this;
        }
        Item& without(const std::string& attribute) {
            if (attribute == "orvel:itemSignature") {
                isSigned_ = false;
            }
            attributes_.erase(attribute);
            return *this;
        }
        /// Adds an element to the item. The text has no XML entities.
        Item& withElement(const std::string& name, std::string text) {
            elements_[name] = std::move(text);
            return *this;
        }

        /// The signature of the item as it is.
        [[nodiscard]] std::string signature() const {
            return signer_.signature(tavrin::signedBytes(
                {.version = version_,
                 .shortVersion = valueOf(elements_, "sparkle:shortVersionString"),
                 .notes = valueOf(elements_, "description"),
                 .channel = valueOf(elements_, "sparkle:channel"),
                 .minimumSystemVersion = valueOf(elements_, "sparkle:minimumSystemVersion"),
                 .system = valueOf(attributes_, "sparkle:os"),
                 .architecture = valueOf(attributes_, "sparkle:arch"),
                 .type = valueOf(attributes_, "type"),
                 .url = valueOf(attributes_, "url"),
                 .length = valueOf(attributes_, "length"),
                 .sha256 = valueOf(attributes_, "orvel:sha256")}));
        }

        [[nodiscard]] std::string text() const {
            std::string text = "<item><sparkle:version>" + version_ + "</sparkle:version>";
            for (const auto& [name, value] : elements_) {
                text.append("<").append(name).append(">").append(value);
                text.append("</").append(name).append(">");
            }
            auto attributes = attributes_;
            if (isSigned_) {
                attributes.emplace("orvel:itemSignature", signature());
            }
            text += "<enclosure";
            for (const auto& [name, value] : attributes) {
                text += " " + name + "=\"" + value + "\"";
            }
            return text + "/></item>\n";
        }

    private:
        using Values = std::map<std::string, std::string>;

        static std::string_view valueOf(const Values& values, const std::string& name) {
            const auto found = values.find(name);
            return found == values.end() ? std::string_view() : found->second;
        }

        std::string version_;
        UpdateSigner signer_;
        Values elements_;
        Values attributes_;
        bool isSigned_ = true;
    };

    AppcastBuilder& add(const Item& item) {
        items_ += item.text();
        return *this;
    }

    [[nodiscard]] std::string text() const {
        return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
               "<rss version=\"2.0\" "
               "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\" "
               "xmlns:orvel=\"https://www.orvel.example/xml-namespaces/update\">"
               "<channel>\n" +
               items_ + "</channel></rss>\n";
    }

private:
    std::string items_;
};

} // namespace orvel::test
