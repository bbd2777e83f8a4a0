// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

/// An account that can sign in.
struct Account {
    std::string uid;
    std::optional<std::string> email;
    std::optional<std::string> handle;
};

/// Two accounts to try things out. The second has no handle.
[[nodiscard]] std::vector<Account> sampleAccounts();

/// Reads a JSON array of objects with "uid" and, optionally, "email" and "handle". Throws
/// `ServiceError`.
[[nodiscard]] std::vector<Account> readAccounts(const std::filesystem::path& file);

/// Returns null if there is no such account.
[[nodiscard]] const Account*
findAccount(const std::vector<Account>& accounts, std::string_view uid);

} // namespace orvel::service
