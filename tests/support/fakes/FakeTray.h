// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Tray.h"
#include "tests/support/fakes/CountedSubscribers.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace orvel::test {

/// A tray that is available initially and records its calls.
class FakeTray final : public Tray {
public:
    bool isInMenuBar = false;
    /// The last title that was set.
    std::string title;

    [[nodiscard]] bool isAvailable() override { return isAvailable_; }

    [[nodiscard]] std::unique_ptr<Subscription> onChange(std::function<void()> changed) override {
        return changed_.add(std::move(changed));
    }

    [[nodiscard]] bool isMenuBar() const override { return isInMenuBar; }

    void setTitle(const std::string& newTitle) override { title = newTitle; }

    [[nodiscard]] std::size_t subscriptions() const { return changed_.size(); }

    void setAvailable(bool isAvailable) {
        isAvailable_ = isAvailable;
        changed_.call();
    }

private:
    bool isAvailable_ = true;
    CountedSubscribers changed_;
};

} // namespace orvel::test
