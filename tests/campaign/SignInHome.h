// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/LocalService.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// A service, the folders of a user who has a keyring, and a desktop whose browser stores the
/// opened page in a file. Needs a private session with a keyring (tests/support/private-session).
class SignInHome final {
public:
    struct Run {
        int status = -1;
        std::string output;
        std::string errors;
    };
    using Variables = std::map<std::string, std::string>;
    /// The e-mail address of the account; none if signed out.
    using SignedIn = std::optional<std::string>;
    /// Stands for the address of a session whose profile has not been loaded.
    static constexpr const char* withoutProfile = "a session without a profile";

    SignInHome();

    /// Runs orvel-scan to sign in, and chooses the account in the browser.
    Run signIn(const service::Account& account, const Variables& variables = {});
    Run signOut(const Variables& variables = {}) { return run({"--sign-out"}, variables); }
    /// Runs orvel-scan with other arguments.
    Run run(const std::vector<std::string>& arguments, const Variables& variables = {});
    /// What a new process finds in the keychain.
    SignedIn account();

    /// The options of a program that uses this home.
    [[nodiscard]] Program::Options
    options(const std::vector<std::string>& arguments, const Variables& variables = {}) const;
    /// Waits until the program ends. Throws if it does not end.
    static Run finish(Program& program);

    /// Files that should not be there while no program runs.
    [[nodiscard]] std::vector<std::string> leftovers() const;
    [[nodiscard]] service::LocalService& service() { return *service_; }
    [[nodiscard]] std::filesystem::path store() const { return directory_ / "records.sqlite"; }
    [[nodiscard]] std::filesystem::path home() const { return directory_ / "home"; }
    [[nodiscard]] std::filesystem::path settings() const {
        return directory_ / "config" / "orvel-agent" / "defaults.conf";
    }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return directory_ / name;
    }

private:
    [[nodiscard]] std::filesystem::path page() const { return directory_ / "page"; }

    TemporaryDirectory directory_;
    std::unique_ptr<service::LocalService> service_;
};

} // namespace orvel::test
