// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QCoroTask>
#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace orvel::test {

namespace detail {

template <typename T>
struct Outcome {
    std::conditional_t<std::is_void_v<T>, bool, std::optional<T>> value{};
    std::exception_ptr error;
    bool isDone = false;
    QEventLoop* loop = nullptr;
};

template <typename T>
QCoro::Task<> settle(QCoro::Task<T> task, std::shared_ptr<Outcome<T>> outcome) {
    try {
        if constexpr (std::is_void_v<T>) {
            co_await task;
        } else {
            outcome->value = co_await task;
        }
    } catch (...) {
        outcome->error = std::current_exception();
    }
    outcome->isDone = true;
    if (outcome->loop != nullptr) {
        outcome->loop->quit();
    }
}

} // namespace detail

/// Runs the event loop until the task ends. Returns its result or rethrows its exception. Throws
/// `std::runtime_error` if it exceeds the limit.
template <typename T>
T runTask(QCoro::Task<T> task, std::chrono::seconds limit = std::chrono::seconds(60)) {
    const auto outcome = std::make_shared<detail::Outcome<T>>();
    detail::settle(std::move(task), outcome);
    if (!outcome->isDone) {
        QEventLoop loop;
        outcome->loop = &loop;
        QTimer::singleShot(limit, &loop, &QEventLoop::quit);
        loop.exec();
        outcome->loop = nullptr;
    }
    if (!outcome->isDone) {
        throw std::runtime_error("The task did not end in time.");
    }
    if (outcome->error) {
        std::rethrow_exception(outcome->error);
    }
    if constexpr (!std::is_void_v<T>) {
        return std::move(*outcome->value);
    }
}

/// Processes queued events until none are left.
inline void processEvents() {
    QCoreApplication::sendPostedEvents();
    while (QCoreApplication::eventDispatcher() != nullptr) {
        if (!QCoreApplication::eventDispatcher()->processEvents(QEventLoop::AllEvents)) {
            return;
        }
    }
}

} // namespace orvel::test
