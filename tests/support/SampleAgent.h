// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/AppModel.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <array>
#include <memory>

namespace orvel::test {

/// What an agent is found doing.
enum class AgentState {
    /// Signed in, and the first scan is over.
    NothingWrong,
    /// The same, without a single message in the last day.
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
    /// Nothing is granted, and nobody signed in.
    EverythingMissing,
    /// Errors, addresses and hosts that are longer than any line.
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

/// In lower case, with dashes.
[[nodiscard]] const char* name(AgentState state);

/// A real model over fakes and a sample database, brought to that state. It stays there: its clock
/// stands still.
class SampleAgent final {
public:
    explicit SampleAgent(AgentState state);
    ~SampleAgent();

    [[nodiscard]] AppModel& model() { return *model_; }

    /// What the user does in the settings of the desktop.
    void grantFullDiskAccess();

    /// Waits for the end of a scan that has begun.
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
