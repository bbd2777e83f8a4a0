// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dispatch/dispatch.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

namespace orvel {

/// Holds the completions of asynchronous calls. Each is called at most once, from the main queue,
/// and never after this object is destroyed. Other threads only have the number of a call, so
/// completions are destroyed on the main thread.
template <typename... Results>
class PendingCalls final {
public:
    using Completion = std::function<void(Results...)>;
    using Number = std::uint64_t;

private:
    struct Table {
        Number last = 0;
        std::map<Number, Completion> completions;
    };

public:
    /// A pending call. May outlive the `PendingCalls` object.
    class Call final {
    public:
        Call(std::weak_ptr<Table> table, Number number)
            : table_(std::move(table)), number_(number) {}

        /// Any thread. Does nothing if the call already has a result.
        void finish(Results... results) const {
            const auto shared = std::make_shared<std::tuple<Results...>>(std::move(results)...);
            const std::weak_ptr<Table> table = table_;
            const Number number = number_;
            dispatch_async(dispatch_get_main_queue(), ^{
              const auto completion = take(table.lock().get(), number);
              if (completion) {
                  std::apply(completion, std::move(*shared));
              }
            });
        }

        /// Main thread. Replaces a result that has not been delivered yet. Returns false and does
        /// nothing if the completion has been called.
        bool finishInstead(Results... results) {
            const auto table = table_.lock();
            Completion completion = take(table.get(), number_);
            if (!completion) {
                return false;
            }
            number_ = ++table->last;
            table->completions.emplace(number_, std::move(completion));
            finish(std::move(results)...);
            return true;
        }

    private:
        /// Removes the completion from the table, because it may destroy the table.
        static Completion take(Table* table, Number number) {
            if (table == nullptr) {
                return nullptr;
            }
            const auto found = table->completions.find(number);
            if (found == table->completions.end()) {
                return nullptr;
            }
            Completion completion = std::move(found->second);
            table->completions.erase(found);
            return completion;
        }

        std::weak_ptr<Table> table_;
        Number number_;
    };

    /// Main thread, as are the constructor and the destructor.
    [[nodiscard]] Call add(Completion completion) {
        const Number number = ++table_->last;
        table_->completions.emplace(number, std::move(completion));
        return Call(table_, number);
    }

private:
    std::shared_ptr<Table> table_ = std::make_shared<Table>();
};

} // namespace orvel
