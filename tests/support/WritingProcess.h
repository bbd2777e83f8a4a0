// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>

namespace orvel::test {

/// A process that changes a database step by step, while this process reads it.
class WritingProcess final {
public:
    /// What the process does. Lives in that process. An exception ends the process.
    class Writer {
    public:
        Writer() = default;
        virtual ~Writer() = default;
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;

        /// `number` counts the steps of one `Work` from 1.
        virtual void step(std::int64_t number) = 0;
    };

    /// The writer stores the number of the last change here, as soon as it is committed.
    using Committed = std::atomic<std::int64_t>;
    using MakeWriter = std::function<std::unique_ptr<Writer>(Committed&)>;

    struct Work {
        std::int64_t steps = 0;
        std::chrono::milliseconds pauseAfterStep{0};
    };

    static constexpr std::int64_t endless = std::numeric_limits<std::int64_t>::max();

    /// Calls `makeWriter` in the process and waits for the end of the call. Forks, so this process
    /// must have one thread and no open database.
    explicit WritingProcess(const MakeWriter& makeWriter);

    /// Kills the process.
    ~WritingProcess();
    WritingProcess(const WritingProcess&) = delete;
    WritingProcess& operator=(const WritingProcess&) = delete;

    /// Starts the work without waiting for it.
    void begin(const Work& work);

    /// Waits until the started work is done.
    void finish();

    /// Waits for that many further steps, or the end of the work.
    void awaitSteps(std::int64_t steps) const;

    /// The number that the writer stored last.
    [[nodiscard]] std::int64_t committed() const;

private:
    struct Shared;

    Shared* shared_;
    tavrin::FileDescriptor channel_;
    pid_t process_;
};

} // namespace orvel::test
