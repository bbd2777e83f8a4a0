// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "platform/AddressBook.h"
#include "tests/support/RunTask.h"

#include <QCoroTask>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

namespace detail {

inline QCoro::Task<AddressBook::Cards>
enumerated(AddressBook* addressBook, AddressBook::Fields fields) {
    const Deferred<AddressBook::Cards> cards;
    addressBook->enumerateCards(
        fields, [cards](AddressBook::Cards result) { cards.resolve(std::move(result)); });
    EXPECT_FALSE(cards.isSettled()) << "answered before the call returned";
    co_await cards.settled();
    co_return cards.value();
}

inline QCoro::Task<bool> requested(AddressBook* addressBook) {
    const Deferred<bool> answer;
    addressBook->requestAccess([answer](bool isGranted) { answer.resolve(isGranted); });
    EXPECT_FALSE(answer.isSettled()) << "answered before the call returned";
    co_await answer.settled();
    co_return answer.value();
}

} // namespace detail

inline bool requestAccess(AddressBook& addressBook) {
    return runTask(detail::requested(&addressBook));
}

/// Throws the address book's error.
inline std::vector<ContactCard> cardsOf(AddressBook& addressBook, AddressBook::Fields fields) {
    AddressBook::Cards cards = runTask(detail::enumerated(&addressBook, fields));
    if (const auto* error = std::get_if<tavrin::PlatformError>(&cards)) {
        throw *error;
    }
    return std::get<std::vector<ContactCard>>(std::move(cards));
}

/// The error's text; empty on success.
inline std::string errorOf(AddressBook& addressBook, AddressBook::Fields fields) {
    try {
        cardsOf(addressBook, fields);
        return {};
    } catch (const tavrin::PlatformError& error) {
        return error.what();
    }
}

} // namespace orvel::test
