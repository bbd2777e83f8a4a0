// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/Account.h"

#include "core/JSON.h"
#include "service/support/ServiceError.h"

#include <boost/json.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace orvel::service {

namespace {

namespace json = boost::json;

Account accountOf(const json::object& object) {
    return {
        tavrin::stringAt(object, "uid"),
        tavrin::optionalStringAt(object, "email"),
        tavrin::optionalStringAt(object, "handle"),
    };
}

} // namespace

std::vector<Account> sampleAccounts() {
    return {
        {"sample-account-1", "sample-1@orvel.example", "sample-1"},
        {"sample-account-2", "sample-2@orvel.example", std::nullopt},
    };
}

std::vector<Account> readAccounts(const std::filesystem::path& file) {
    const auto fail = [&file](const std::string& reason) {
        return ServiceError(ServiceError::File{file.string(), reason});
    };
    std::ifstream stream(file, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        throw fail("it cannot be read");
    }
    json::error_code error;
    const auto parsed = json::parse(text, error);
    if (error || !parsed.is_array()) {
        throw fail("it is not a JSON array");
    }
    std::vector<Account> accounts;
    try {
        for (const auto& value : parsed.get_array()) {
            auto account = accountOf(tavrin::asObject(value));
            if (account.uid.empty() || findAccount(accounts, account.uid) != nullptr) {
                throw fail("every account needs a unique \"uid\"");
            }
            accounts.push_back(std::move(account));
        }
    } catch (const tavrin::JSONDecodingError&) {
        const auto number = std::to_string(accounts.size() + 1);
        throw fail("account " + number + " is not an object of texts with a \"uid\"");
    }
    return accounts;
}

const Account* findAccount(const std::vector<Account>& accounts, std::string_view uid) {
    const auto found = std::ranges::find(accounts, uid, &Account::uid);
    return found == accounts.end() ? nullptr : &*found;
}

} // namespace orvel::service
