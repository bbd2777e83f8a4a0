// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Bundle.h"

#include <map>
#include <string>
#include <utility>

namespace orvel::test {

/// A bundle with the values that the test sets.
class FakeBundle final : public Bundle {
public:
    void setInfo(std::string key, std::string value) {
        information_.insert_or_assign(std::move(key), std::move(value));
    }
    /// For example "CHANGELOG.md".
    void setResource(std::string fileName, std::string content) {
        resources_.insert_or_assign(std::move(fileName), std::move(content));
    }

    [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const override {
        return find(information_, std::string(key));
    }
    [[nodiscard]] std::string identifier() const override {
        return infoString("CFBundleIdentifier").value_or("");
    }
    [[nodiscard]] std::optional<std::string>
    resource(std::string_view name, std::string_view extension) const override {
        return find(resources_, std::string(name) + "." + std::string(extension));
    }

private:
    using Strings = std::map<std::string, std::string>;

    static std::optional<std::string> find(const Strings& strings, const std::string& key) {
        const auto found = strings.find(key);
        return found == strings.end() ? std::nullopt : std::optional(found->second);
    }

    Strings information_;
    Strings resources_;
};

} // namespace orvel::test
