// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/AppModel.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <array>
#include <memory>

namespace orvel::test {

/// The states of the agent that tests show.
enum class AgentState {
    /// Signed in, after the first scan.
    NothingWrong,
    /// The same, without any message in the last day.
    NothingScanned,
    NoScansYet,
    Scanning,
    SignedOut,
    SigningIn,
    SignInFailed,
    NoAccount,
    FullDiskAccessMissing,
    ContactsMissing,
    UnderDebugger,
    ScanFailed,
    Paused,
    /// Signed out, without any permission.
    EverythingMissing,
    /// Errors, addresses and host names longer than a line.
    LongTexts,
};

inline constexpr std::array allAgentStates{
    AgentState::NothingWrong,
    AgentState::NothingScanned,
    AgentState::NoScansYet,
    AgentState::Scanning,
    AgentState::SignedOut,
    AgentState::SigningIn,
    AgentState::SignInFailed,
    AgentState::NoAccount,
    AgentState::FullDiskAccessMissing,
    AgentState::ContactsMissing,
    AgentState::UnderDebugger,
    AgentState::ScanFailed,
    AgentState::Paused,
    AgentState::EverythingMissing,
    AgentState::LongTexts};

/// The name in lower case, with dashes.
[[nodiscard]] const char* name(AgentState state);

/// A real model in the given state, with fakes and a sample database. The state does not change,
/// because the clock is stopped.
class SampleAgent final {
public:
    explicit SampleAgent(AgentState state);
    ~SampleAgent();

    [[nodiscard]] AppModel& model() { return *model_; }

    /// Changes the setting like the user would do on the desktop.
    void grantFullDiskAccess();

    /// Waits until the running scan ends.
    void finishScan();

    TestPlatform with;

private:
    void prepare(AgentState state);
    void makeDatabase(int messages);
    void bringTo(AgentState state);
    void signInTo(const char* callback);

    TemporaryDirectory directory_;
    std::unique_ptr<MessagesDatabaseBuilder> database_;
    CollectorService::Options options_;
    std::unique_ptr<AppModel> model_;
};

} // namespace orvel::test
