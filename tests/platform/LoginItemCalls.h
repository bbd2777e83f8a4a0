// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <functional>
#include <optional>
#include <variant>

namespace orvel::test {

inline void waitFor(const std::function<bool()>& condition) {
    while (!condition()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

inline std::optional<tavrin::PlatformError>
resultOf(LoginItem& item, void (LoginItem::*change)(LoginItem::Completion completion)) {
    bool isDone = false;
    std::optional<tavrin::PlatformError> result;
    (item.*change)([&](const std::optional<tavrin::PlatformError>& error) {
        isDone = true;
        result = error;
    });
    waitFor([&isDone] { return isDone; });
    return result;
}

inline std::variant<LoginItem::Status, tavrin::PlatformError> statusOf(LoginItem& item) {
    std::optional<std::variant<LoginItem::Status, tavrin::PlatformError>> status;
    item.status([&status](auto given) { status = given; });
    waitFor([&status] { return status.has_value(); });
    return *status;
}

} // namespace orvel::test
