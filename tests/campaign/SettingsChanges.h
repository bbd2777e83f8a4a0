// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>

namespace orvel::test {

/// The changes that a writer of settings makes, always the same for a seed.
class SettingsChanges final {
public:
    using Value = tavrin::UserDefaults::Value;
    using Values = std::map<std::string, Value>;

    struct Change {
        std::string key;
        /// None to remove the setting.
        std::optional<Value> value;

        void applyTo(tavrin::UserDefaults& defaults) const {
            value ? defaults.set(key, *value) : defaults.remove(key);
        }
        void applyTo(Values& values) const {
            if (value) {
                values.insert_or_assign(key, *value);
            } else {
                values.erase(key);
            }
        }
    };

    static constexpr int count = 8;
    static constexpr int keys = 6;

    /// Writers with different names use different keys.
    SettingsChanges(std::string name, unsigned seed) : name_(std::move(name)), random_(seed) {}

    [[nodiscard]] static std::string key(const std::string& name, int number) {
        return name + "." + std::to_string(number);
    }

    Change next() {
        Change change{key(name_, below(keys)), std::nullopt};
        switch (below(5)) {
        case 0:
            break;
        case 1:
            change.value = below(2) == 1;
            break;
        case 2:
            change.value = static_cast<std::int64_t>(random_()) - (std::int64_t{1} << 31);
            break;
        default:
            // Sometimes longer than the buffers of Qt and of the system.
            change.value = std::string(
                               static_cast<std::size_t>(below(below(4) == 0 ? 100'000 : 40)),
                               static_cast<char>('a' + below(26))) +
                           (below(3) == 0 ? "=\\\n#\n" : "") + std::to_string(random_());
            break;
        }
        return change;
    }

private:
    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    std::string name_;
    std::mt19937 random_;
};

} // namespace orvel::test
