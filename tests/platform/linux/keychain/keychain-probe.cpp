// SPDX-License-Identifier: Apache-2.0
//
// usage: keychain-probe COMMAND…
//
// Uses the keychain in a separate process. The commands apply to one item, in order: "read",
// "remove", or a value to write; "@" and a path stand for the value in that file. Prints a line for
// each, and the log at the end.
#include "platform/linux/keychain/SecretServiceKeychain.h"
#include "tests/platform/KeychainCalls.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <QCoreApplication>

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string valueOf(std::string_view command) {
    if (!command.starts_with('@')) {
        return std::string(command);
    }
    std::ifstream file{std::string(command.substr(1))};
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

int main(int argc, char** argv) {
    using namespace orvel;
    constexpr auto service = "app.test.session";
    constexpr auto account = "probe";
    const QCoreApplication application(argc, argv);
    test::ManualClock clock;
    test::RecordingLogStore log;
    SecretServiceKeychain keychain(clock, log);
    for (const std::string_view command : std::vector<std::string_view>(argv + 1, argv + argc)) {
        if (command == "read") {
            const auto value = textOf(test::startRead(keychain, service, account));
            std::cout << "value: " << value.value_or("none") << '\n';
        } else {
            const auto change =
                command == "remove"
                    ? test::startRemove(keychain, service, account)
                    : test::startWrite(keychain, service, account, valueOf(command));
            std::cout << "failure: " << failureOf(change) << '\n';
        }
    }
    for (const auto& line : log.lines()) {
        std::cout << "log: " << line.category << ": " << line.message << '\n';
    }
}
