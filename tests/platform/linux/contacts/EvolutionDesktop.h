// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/AddressBook.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

class BusDaemon;

/// Writes to the session's address books as a desktop program. Starts with an empty personal book
/// and removes other books at the end. Throws `std::runtime_error` on errors, and outside a private
/// session, to protect the user's cards.
class EvolutionDesktop final {
public:
    EvolutionDesktop();
    ~EvolutionDesktop();
    EvolutionDesktop(const EvolutionDesktop&) = delete;
    EvolutionDesktop& operator=(const EvolutionDesktop&) = delete;

    /// Adds the cards to the personal book.
    void add(const std::vector<ContactCard>& cards);
    void addVCard(const std::string& vcard);

    /// Adds an enabled book with that backend and returns its identifier.
    std::string addBook(const std::string& name, const std::string& backend = "local");
    void addVCardTo(const std::string& book, const std::string& vcard);
    void setEnabled(const std::string& book, bool isEnabled);

    static constexpr auto personalBook = "system-address-book";

private:
    struct Session;
    std::unique_ptr<Session> session_;
};

/// Replaces the session bus until destroyed.
class OtherBus final {
public:
    /// A bus without any service, or an address without a bus.
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
