// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

/// The people the service knows, as match hints.
class KnownHandles final {
public:
    using Hints = std::set<std::string, std::less<>>;

    /// From handles in any spelling; one without a match hint is left out.
    explicit KnownHandles(const std::vector<std::string>& handles);

    /// The hint of the handle when it is known, otherwise nothing.
    [[nodiscard]] const std::string* find(std::string_view handle) const;

    [[nodiscard]] const Hints& hints() const { return hints_; }

private:
    Hints hints_;
};

/// Reads a JSON array of strings. Throws `ServiceError`.
[[nodiscard]] std::vector<std::string> readKnownHandles(const std::filesystem::path& file);

} // namespace orvel::service
