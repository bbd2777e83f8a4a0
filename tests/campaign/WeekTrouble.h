// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "tests/campaign/WeekService.h"
#include "tests/support/fakes/TestPlatform.h"

#include <functional>
#include <optional>
#include <random>
#include <string_view>
#include <vector>

namespace orvel::test {

/// What goes wrong around the agent for some time: the network, the keyring, the address book, the
/// tray and the disk.
class WeekTrouble final {
public:
    enum class Kind { Network, KeyringLocked, KeyringAway, ContactsAway, TrayAway, FullDisk };

    /// Borrows all of them.
    WeekTrouble(TestPlatform& with, WeekService& service, std::mt19937& random);

    /// Begins or ends it. Does nothing if it is so already.
    void set(Kind kind, bool isActive);
    [[nodiscard]] bool isActive(Kind kind) const { return entry(kind).isActive; }

    [[nodiscard]] static const std::vector<Kind>& allKinds();
    /// How likely it begins in an hour, in percent.
    [[nodiscard]] int likelihood(Kind kind) const { return entry(kind).likelihood; }

    /// Since when there is no tray.
    [[nodiscard]] const std::optional<tavrin::Seconds>& trayGoneAt() const { return trayGoneAt_; }
    /// The agent was started again, and waits for a tray from now on.
    void restartTrayWait();

private:
    struct Entry {
        int likelihood = 0;
        std::function<void()> begin;
        std::function<void()> end;
        bool isActive = false;
    };

    [[nodiscard]] const Entry& entry(Kind kind) const {
        return entries_.at(static_cast<std::size_t>(kind));
    }
    [[nodiscard]] static tavrin::PlatformError away();
    void beginNetworkTrouble();
    void beginContactsTrouble();
    void bringContactsBack();
    void setTray(bool isAvailable);

    TestPlatform& with_;
    WeekService& service_;
    std::mt19937& random_;
    /// In the order of `Kind`.
    std::vector<Entry> entries_;
    std::optional<tavrin::Seconds> trayGoneAt_;
};

} // namespace orvel::test
