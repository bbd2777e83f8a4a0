// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "platform/AddressBook.h"
#include "tests/support/RunTask.h"

#include <QCoroTask>

#include <gtest/gtest.h>

#include <string>
#include <utility>
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

/// The cards that can be read, and the error.
inline AddressBook::Cards enumerate(AddressBook& addressBook, AddressBook::Fields fields) {
    return runTask(detail::enumerated(&addressBook, fields));
}

/// Throws the address book's error.
inline std::vector<ContactCard> cardsOf(AddressBook& addressBook, AddressBook::Fields fields) {
    AddressBook::Cards read = enumerate(addressBook, fields);
    if (read.error) {
        throw *read.error;
    }
    return std::move(read.cards);
}

/// The error's text; empty on success.
inline std::string errorOf(AddressBook& addressBook, AddressBook::Fields fields) {
    const AddressBook::Cards read = enumerate(addressBook, fields);
    return read.error ? read.error->what() : "";
}

} // namespace orvel::test
