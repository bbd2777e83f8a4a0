// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QObject;

namespace orvel {

/// Makes the desktop start `orvel-agent-callback` for URLs of the scheme "orvelagent".
///
/// An installed agent comes with a desktop entry for it. For one that runs from elsewhere, or when
/// the entry's program is gone, this writes an entry of the user's own, for the program beside the
/// running one, and makes it the scheme's default. What fails is logged under "auth": the browser
/// may still ask its user.
///
/// Main thread; it waits for nothing there. Borrows the clock and the log store.
class SchemeRegistration final {
public:
    /// Beside the running program.
    [[nodiscard]] static std::filesystem::path defaultProgram();

    SchemeRegistration(std::filesystem::path program, Clock& clock, LogStore& logStore);
    ~SchemeRegistration();
    SchemeRegistration(const SchemeRegistration&) = delete;
    SchemeRegistration& operator=(const SchemeRegistration&) = delete;

    /// Calls back once, when it is done or has failed, after ten seconds at most; never before this
    /// returns, and not at all when this object is destroyed first.
    void ensure(std::function<void()> completion);

private:
    void writeEntry(bool isDefault);
    void makeDefault(const std::string& folder);
    /// Of the run that is on its way.
    void end(const std::string& failure = {});

    std::filesystem::path program_;
    Clock& clock_;
    LogStore& logStore_;
    std::vector<std::function<void()>> completions_;
    std::unique_ptr<Clock::Timer> timer_;
    /// Destroyed first: what is on its way is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
