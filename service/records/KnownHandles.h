// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

/// The contacts that the service knows, as match hints.
class KnownHandles final {
public:
    using Hints = std::set<std::string, std::less<>>;

    /// Takes handles in any spelling. Those without a match hint are skipped.
    explicit KnownHandles(const std::vector<std::string>& handles);

    /// The hint of a known handle, or null.
    [[nodiscard]] const std::string* find(std::string_view handle) const;

    [[nodiscard]] const Hints& hints() const { return hints_; }

private:
    Hints hints_;
};

/// Reads a JSON array of strings. Throws `ServiceError`.
[[nodiscard]] std::vector<std::string> readKnownHandles(const std::filesystem::path& file);

} // namespace orvel::service
