// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <variant>

namespace orvel {

/// Ends what waits for a URL exactly once, however many ends are reported.
///
/// Shared by those who report. Thread-safe; the continuation runs on the thread of the first
/// report.
class ResumeOnce final {
public:
    using Outcome = std::variant<std::string, std::exception_ptr>;
    using Continuation = std::function<void(Outcome)>;

    explicit ResumeOnce(Continuation continuation);
    ResumeOnce(const ResumeOnce&) = delete;
    ResumeOnce& operator=(const ResumeOnce&) = delete;
    ~ResumeOnce() = default;

    void succeed(std::string url);
    void fail(std::exception_ptr error);

private:
    void resume(Outcome outcome);

    std::mutex lock_;
    Continuation continuation_;
};

} // namespace orvel
