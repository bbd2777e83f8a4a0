// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/AccountCommand.h"

#include "core/Text.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

void printFailure(std::string_view attempt, const std::exception& failure) {
    fmt::print(stderr, "orvel-scan: {}{}\n", attempt, tavrin::onOneLine(failure.what()));
}

} // namespace

AccountCommand::AccountCommand(ScanArguments arguments)
    : arguments_(std::move(arguments)),
      platform_(makePlatform(platformOptions(arguments_))),
      auth_(makeAuthService(platform_, worker_)) {}

AccountCommand::~AccountCommand() = default;

QCoro::Task<int> AccountCommand::run() {
    switch (arguments_.action) {
    case ScanArguments::Action::SignIn:
        return signIn();
    case ScanArguments::Action::SignOut:
        return signOut();
    case ScanArguments::Action::ShowAccount:
    case ScanArguments::Action::Scan:
        break;
    }
    return showAccount();
}

void AccountCommand::cancel() {
    // Also ends a wait for the user to unlock the keychain.
    cancellation_.cancel();
    auth_->cancelSignIn();
}

QCoro::Task<int> AccountCommand::signIn() {
    fmt::print(stderr, "Continue in the browser, which opens now. Ctrl+C gives up.\n");
    co_await auth_->signIn();
    if (auth_->lastError()) {
        fmt::print(stderr, "orvel-scan: {}\n", tavrin::onOneLine(*auth_->lastError()));
        if (auth_->needsAccount()) {
            fmt::print(stderr, "You can make one on the website, which opens now.\n");
        }
        co_return failed;
    }
    if (!auth_->isSignedIn()) {
        if (!cancellation_.token().isCancelled()) {
            fmt::print(stderr, "orvel-scan: The service ended the session at once.\n");
        }
        co_return failed;
    }
    if (const auto failure = co_await auth_->stored(cancellation_.token())) {
        printFailure("The session could not be kept: ", *failure);
        co_return failed;
    }
    printAccount();
    co_return succeeded;
}

QCoro::Task<int> AccountCommand::signOut() {
    auth_->signOut();
    if (const auto failure = co_await auth_->stored(cancellation_.token())) {
        printFailure("The session could not be removed: ", *failure);
        co_return failed;
    }
    if (arguments_.printsJSON) {
        printAccount();
    } else {
        fmt::print("Signed out.\n");
    }
    co_return succeeded;
}

QCoro::Task<int> AccountCommand::showAccount() {
    co_await auth_->restored(cancellation_.token());
    printAccount();
    co_return auth_->isSignedIn() ? succeeded : failed;
}

void AccountCommand::printAccount() const {
    const auto& email = auth_->accountEmail();
    const auto& handle = auth_->accountHandle();
    if (arguments_.printsJSON) {
        boost::json::object json;
        json["signedIn"] = auth_->isSignedIn();
        if (email) {
            json["email"] = *email;
        }
        if (handle) {
            json["handle"] = *handle;
        }
        fmt::print("{}\n", boost::json::serialize(json));
    } else if (!auth_->isSignedIn()) {
        fmt::print("Not signed in.\n");
    } else if (email || handle) {
        fmt::print(
            "Signed in as {}{}.\n",
            tavrin::onOneLine(email ? *email : *handle),
            email && handle ? " (" + tavrin::onOneLine(*handle) + ")" : std::string());
    } else {
        fmt::print("Signed in.\n");
    }
}

} // namespace orvel
