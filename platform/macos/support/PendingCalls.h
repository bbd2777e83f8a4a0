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

/// The completions of calls whose results come from other threads or later. Each is called at most
/// once, from the main queue, and none once this object is destroyed. They stay on the main thread:
/// other threads know the number of a call only, so that nothing the caller bound to a completion
/// is ever destroyed elsewhere.
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
    /// One call that has not ended, for whoever ends it. May outlive the completions.
    class Call final {
    public:
        Call(std::weak_ptr<Table> table, Number number)
            : table_(std::move(table)), number_(number) {}

        /// Any thread. Nothing when the call has already ended, or is going to with another result.
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

        /// Main thread. Ends the call with this result even if another one is already on its way;
        /// false, and nothing, when the completion has been called.
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
        /// The completion may destroy the table: it is not in there any more while it runs.
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
