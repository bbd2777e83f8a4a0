// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/AddressBook.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

class BusDaemon;

/// The address books of the session, as the desktop's own programs write to them. Starts with an
/// empty personal book and leaves no others behind. Throws `std::runtime_error` when the service
/// refuses, and outside a private session, where the cards would be the user's own.
class EvolutionDesktop final {
public:
    EvolutionDesktop();
    ~EvolutionDesktop();
    EvolutionDesktop(const EvolutionDesktop&) = delete;
    EvolutionDesktop& operator=(const EvolutionDesktop&) = delete;

    /// To the personal book.
    void add(const std::vector<ContactCard>& cards);
    void addVCard(const std::string& vcard);

    /// An enabled book of that backend; gives its identifier.
    std::string addBook(const std::string& name, const std::string& backend = "local");
    void addVCardTo(const std::string& book, const std::string& vcard);
    void setEnabled(const std::string& book, bool isEnabled);

    static constexpr auto personalBook = "system-address-book";

private:
    struct Session;
    std::unique_ptr<Session> session_;
};

/// Stands in for the session's bus as long as it lives.
class OtherBus final {
public:
    /// A bus without any service, or an address where no bus is.
    enum class Kind { WithoutServices, Nowhere };

    explicit OtherBus(Kind kind);
    ~OtherBus();
    OtherBus(const OtherBus&) = delete;
    OtherBus& operator=(const OtherBus&) = delete;

private:
    std::string usualAddress_;
    std::unique_ptr<BusDaemon> daemon_;
};

} // namespace orvel::test
