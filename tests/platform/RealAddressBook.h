// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/AddressBook.h"

#include <memory>
#include <vector>

namespace orvel::test {

/// An address book and its simulated user.
class AddressBookSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual AddressBook& addressBook() = 0;
    virtual void add(const std::vector<ContactCard>& cards) = 0;
    /// The user's answer; initially yes.
    virtual void setUserAllows(bool userAllows) = 0;
    [[nodiscard]] virtual int questions() const = 0;
    /// From now on, part of the cards, or all of them, cannot be read.
    virtual void breakPart() = 0;
    /// Whether nothing can be read. Initially not. Afterwards, the cards may be gone.
    virtual void setBroken(bool isBroken) = 0;
    /// Whether the status is then `Restricted`.
    [[nodiscard]] virtual bool isRestrictedWhenBroken() const = 0;
};

[[nodiscard]] std::unique_ptr<AddressBookSubject> makeRealAddressBook();

} // namespace orvel::test
