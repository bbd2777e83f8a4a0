// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/WeekTrouble.h"

#include <array>

namespace orvel::test {

namespace {

constexpr const char* email = "ada@example.com";

} // namespace

WeekTrouble::WeekTrouble(TestPlatform& with, WeekService& service, std::mt19937& random)
    : with_(with), service_(service), random_(random) {
    ContactCard card;
    card.givenName = "Ada";
    card.phoneNumbers = {"+1 415 555 0134"};
    with_.addressBook.cards = {card};
    bringContactsBack();
    entries_ = {
        {25,
         [this] { beginNetworkTrouble(); },
         [this] {
             service_.setNetwork(WeekService::Network::Online);
         }},
        {4,
         [this] { with_.keychain.lock(); },
         [this] {
             with_.keychain.unlock();
         }},
        {6,
         [this] { with_.keychain.readError = away(); },
         [this] {
             with_.keychain.readError.reset();
         }},
        {5,
         [this] { beginContactsTrouble(); },
         [this] {
             bringContactsBack();
         }},
        {4,
         [this] { setTray(false); },
         [this] {
             setTray(true);
         }},
        {3,
         [this] { with_.fileCopier.setFails(true); },
         [this] {
             with_.fileCopier.setFails(false);
         }},
    };
}

void WeekTrouble::set(Kind kind, bool isActive) {
    Entry& entry = entries_.at(static_cast<std::size_t>(kind));
    if (entry.isActive != isActive) {
        entry.isActive = isActive;
        (isActive ? entry.begin : entry.end)();
    }
}

const std::vector<WeekTrouble::Kind>& WeekTrouble::allKinds() {
    static const std::vector<Kind> kinds{
        Kind::Network,
        Kind::KeyringLocked,
        Kind::KeyringAway,
        Kind::ContactsAway,
        Kind::TrayAway,
        Kind::FullDisk};
    return kinds;
}

void WeekTrouble::restartTrayWait() {
    if (trayGoneAt_) {
        trayGoneAt_ = with_.clock.uptime();
    }
}

tavrin::PlatformError WeekTrouble::away() {
    return {"Test", 1, "The service is away."};
}

void WeekTrouble::beginNetworkTrouble() {
    using Network = WeekService::Network;
    constexpr std::array kinds{
        Network::Offline,
        Network::CaptivePortal,
        Network::Overloaded,
        Network::Down,
        Network::Silent,
        Network::RepliesLost};
    service_.setNetwork(kinds.at(random_() % kinds.size()));
}

void WeekTrouble::beginContactsTrouble() {
    service_.beginContactsGap();
    switch (random_() % 3) {
    case 0:
        with_.addressBook.readError = away();
        break;
    case 1:
        with_.addressBook.bookError = away();
        with_.addressBook.cards.front().emailAddresses.clear();
        break;
    default:
        with_.addressBook.status = AddressBook::AuthorizationStatus::Restricted;
        break;
    }
}

void WeekTrouble::bringContactsBack() {
    with_.addressBook.readError.reset();
    with_.addressBook.bookError.reset();
    with_.addressBook.cards.front().emailAddresses = {email};
    with_.addressBook.status = AddressBook::AuthorizationStatus::Authorized;
}

void WeekTrouble::setTray(bool isAvailable) {
    trayGoneAt_ = isAvailable ? std::nullopt : std::optional(with_.clock.uptime());
    with_.tray.setAvailable(isAvailable);
}

} // namespace orvel::test
