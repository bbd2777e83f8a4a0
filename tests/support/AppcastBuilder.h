// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

/// Writes update feeds, including incomplete and invalid ones.
class AppcastBuilder final {
public:
    /// One item, complete for an AppImage of 64-bit PCs.
    class Item final {
    public:
        Item(std::string version, std::string url, std::size_t length, std::string signature)
            : version_(std::move(version)),
              attributes_{
                  {"url", std::move(url)},
                  {"length", std::to_string(length)},
                  {"type", "application/vnd.appimage"},
                  {"sparkle:edSignature", std::move(signature)},
                  {"sparkle:os", "linux"},
                  {"sparkle:arch", "x86_64"}} {}

        /// Sets an attribute of the enclosure.
        Item& with(const std::string& attribute, std::string value) {
            attributes_[attribute] = std::move(value);
            return *this;
        }
        Item& without(const std::string& attribute) {
            attributes_.erase(attribute);
            return *this;
        }
        /// Adds an element to the item.
        Item& withElement(std::string_view name, std::string_view text) {
            elements_ +=
                "<" + std::string(name) + ">" + std::string(text) + "</" + std::string(name) + ">";
            return *this;
        }

        [[nodiscard]] std::string text() const {
            std::string text =
                "<item><sparkle:version>" + version_ + "</sparkle:version>" + elements_;
            text += "<enclosure";
            for (const auto& [name, value] : attributes_) {
                text += " " + name + "=\"" + value + "\"";
            }
            return text + "/></item>\n";
        }

    private:
        std::string version_;
        std::string elements_;
        std::map<std::string, std::string> attributes_;
    };

    AppcastBuilder& add(const Item& item) {
        items_ += item.text();
        return *this;
    }

    [[nodiscard]] std::string text() const {
        return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
               "<rss version=\"2.0\" "
               "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">"
               "<channel>\n" +
               items_ + "</channel></rss>\n";
    }

private:
    std::string items_;
};

} // namespace orvel::test
