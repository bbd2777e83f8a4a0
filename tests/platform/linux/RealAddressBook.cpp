// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealAddressBook.h"

#include "platform/linux/contacts/EvolutionAddressBook.h"
#include "tests/platform/linux/contacts/EvolutionDesktop.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <functional>
#include <optional>
#include <utility>

namespace orvel::test {

namespace {

class EvolutionSubject final : public AddressBookSubject {
public:
    AddressBook& addressBook() override { return addressBook_; }
    void add(const std::vector<ContactCard>& cards) override { desktop_->add(cards); }
    void setUserAllows(bool userAllows) override { userAllows_ = userAllows; }
    [[nodiscard]] int questions() const override { return questions_; }
    void breakPart() override { desktop_->addBook("Broken", "nonexistent"); }
    void setBroken(bool isBroken) override {
        // Its connection to the usual bus would stay in use.
        desktop_.reset();
        bus_.reset();
        if (isBroken) {
            bus_.emplace(OtherBus::Kind::Nowhere);
        } else {
            desktop_.emplace();
        }
    }
    [[nodiscard]] bool isRestrictedWhenBroken() const override { return true; }

private:
    std::optional<EvolutionDesktop> desktop_{std::in_place};
    std::optional<OtherBus> bus_;
    InMemoryUserDefaults defaults_;
    RecordingLogStore log_;
    bool userAllows_ = true;
    int questions_ = 0;
    EvolutionAddressBook addressBook_{
        defaults_, log_, [this](const std::function<void(bool)>& answer) {
            ++questions_;
            answer(userAllows_);
        }};
};

} // namespace

std::unique_ptr<AddressBookSubject> makeRealAddressBook() {
    return std::make_unique<EvolutionSubject>();
}

} // namespace orvel::test
