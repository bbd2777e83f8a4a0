// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Keychain.h"
#include "tests/support/WaitUntil.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvel::test {

/// The result of a keychain operation.
template <typename T>
class Pending final {
public:
    [[nodiscard]] auto completion() const {
        return [result = result_](T value) {
            if (*result) {
                throw std::runtime_error("The keychain answered twice.");
            }
            *result = std::move(value);
        };
    }

    [[nodiscard]] bool isDone() const { return result_->has_value(); }

    /// Waits for the result.
    [[nodiscard]] T value() const {
        if (!waitUntil([this] { return isDone(); })) {
            throw std::runtime_error("The keychain did not answer.");
        }
        return **result_;
    }

private:
    std::shared_ptr<std::optional<T>> result_ = std::make_shared<std::optional<T>>();
};

using PendingRead = Pending<Keychain::Reading>;
using PendingChange = Pending<std::optional<tavrin::PlatformError>>;

inline PendingRead
startRead(Keychain& keychain, const std::string& service, const std::string& account) {
    const PendingRead read;
    keychain.read(service, account, read.completion());
    return read;
}

inline PendingChange startWrite(
    Keychain& keychain, const std::string& service, const std::string& account, std::string value) {
    const PendingChange write;
    keychain.write(service, account, tavrin::Secret(std::move(value)), write.completion());
    return write;
}

inline PendingChange
startRemove(Keychain& keychain, const std::string& service, const std::string& account) {
    const PendingChange removal;
    keychain.remove(service, account, removal.completion());
    return removal;
}

inline std::optional<std::string> textOf(const PendingRead& read) {
    const std::optional<tavrin::Secret> value = read.value().value;
    return value ? std::optional(value->text()) : std::nullopt;
}

/// The error of the change; empty on success.
inline std::string failureOf(const PendingChange& change) {
    const std::optional<tavrin::PlatformError> failure = change.value();
    return failure ? failure->what() : std::string();
}

} // namespace orvel::test
