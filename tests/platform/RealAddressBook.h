// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/AddressBook.h"

#include <memory>
#include <vector>

namespace orvel::test {

/// An address book, and the user it belongs to.
class AddressBookSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual AddressBook& addressBook() = 0;
    virtual void add(const std::vector<ContactCard>& cards) = 0;
    /// What the user says when asked; yes unless told.
    virtual void setUserAllows(bool userAllows) = 0;
    [[nodiscard]] virtual int questions() const = 0;
};

/// This system's.
[[nodiscard]] std::unique_ptr<AddressBookSubject> makeRealAddressBook();

} // namespace orvel::test
