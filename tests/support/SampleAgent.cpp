// SPDX-License-Identifier: Apache-2.0
#include "tests/support/SampleAgent.h"

#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

namespace orvel::test {

namespace {

constexpr int sampleMessages = 128;

bool startsSignedOut(AgentState state) {
    switch (state) {
    case AgentState::SignedOut:
    case AgentState::SigningIn:
    case AgentState::SignInFailed:
    case AgentState::NoAccount:
    case AgentState::EverythingMissing:
        return true;
    default:
        return false;
    }
}

void await(const std::function<bool()>& condition) {
    if (!waitUntil(condition)) {
        throw std::runtime_error("The sample agent did not come to its state.");
    }
}

} // namespace

const char* name(AgentState state) {
    switch (state) {
    case AgentState::NothingWrong:
        return "nothing-wrong";
    case AgentState::NothingScanned:
        return "nothing-scanned";
    case AgentState::NoScansYet:
        return "no-scans-yet";
    case AgentState::Scanning:
        return "scanning";
    case AgentState::SignedOut:
        return "signed-out";
    case AgentState::SigningIn:
        return "signing-in";
    case AgentState::SignInFailed:
        return "sign-in-failed";
    case AgentState::NoAccount:
        return "no-account";
    case AgentState::FullDiskAccessMissing:
        return "full-disk-access-missing";
    case AgentState::ContactsMissing:
        return "contacts-missing";
    case AgentState::UnderDebugger:
        return "under-debugger";
    case AgentState::ScanFailed:
        return "scan-failed";
    case AgentState::Paused:
        return "paused";
    case AgentState::EverythingMissing:
        return "everything-missing";
    case AgentState::LongTexts:
        return "long-texts";
    }
    return "";
}

SampleAgent::SampleAgent(AgentState state) {
    options_.sourcePath = (directory_ / "chat.db").string();
    options_.retryDelays = {};
    prepare(state);
    model_ = std::make_unique<AppModel>(with.platform, with.updatePresenter, options_);
    bringTo(state);
}

SampleAgent::~SampleAgent() = default;

void SampleAgent::prepare(AgentState state) {
    const bool hasDatabase =
        state != AgentState::FullDiskAccessMissing && state != AgentState::EverythingMissing;
    if (hasDatabase) {
        makeDatabase(state == AgentState::NothingScanned ? 0 : sampleMessages);
    }
    with.bundle.setInfo("CFBundleVersion", "57");
    std::string account = "sample-1@orvel.example";
    if (state == AgentState::LongTexts) {
        account = fmt::format("sample-{:0>60}@orvel.example", 1);
        with.bundle.setInfo("WEB_HOST", "messages.and-their-assistant.orvel.example");
        with.workspace.openError = tavrin::PlatformError(
            "xdg-open", 3, fmt::format("Could not open the settings: /{:a>80}", ""));
        with.service.setAnswer(
            FakeService::ingestPath,
            503,
            fmt::format("The service does not know what to make of this batch: {:x>90}", ""));
    }
    if (!startsSignedOut(state)) {
        with.storeSession(account);
    }
    switch (state) {
    case AgentState::NoScansYet:
        with.service.setAnswer(FakeService::digestPath, std::nullopt);
        break;
    case AgentState::Scanning:
        with.service.setAnswer(FakeService::ingestPath, std::nullopt);
        break;
    case AgentState::ScanFailed:
        with.service.setAnswer(FakeService::ingestPath, 503, "The service is being updated.");
        break;
    case AgentState::UnderDebugger:
        with.processControl.hasDebugger = true;
        with.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
        break;
    case AgentState::ContactsMissing:
    case AgentState::EverythingMissing:
    case AgentState::LongTexts:
        with.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
        break;
    default:
        break;
    }
}

void SampleAgent::grantFullDiskAccess() {
    makeDatabase(sampleMessages);
}

void SampleAgent::finishScan() {
    const std::size_t before = model_->collector().history().size();
    await([&] { return model_->collector().history().size() > before; });
    processEvents();
}

void SampleAgent::makeDatabase(int messages) {
    database_ = std::make_unique<MessagesDatabaseBuilder>(directory_ / "chat.db");
    const auto handle = database_->addHandle("+14155550134");
    const auto chat = database_->addChat({.participants = {handle}});
    database_->inOneTransaction([&] {
        for (int number = 1; number <= messages; ++number) {
            database_->addMessage(
                {.guid = fmt::format("message-{}", number), .text = "text", .chats = {chat}});
        }
    });
}

void SampleAgent::signInTo(const char* callback) {
    with.browser.user = [callback](const FakeWebAuthenticationSession::Page&) {
        return FakeWebAuthenticationSession::Outcome(callback);
    };
    runTask(model_->auth().signIn());
}

void SampleAgent::bringTo(AgentState state) {
    runTask(model_->auth().restored());
    switch (state) {
    case AgentState::NoScansYet:
        await([this] { return with.service.requestCount(FakeService::digestPath) == 1; });
        break;
    case AgentState::Scanning:
        await([this] { return with.service.requestCount(FakeService::ingestPath) == 1; });
        break;
    case AgentState::SigningIn:
        static_cast<void>(model_->auth().signIn());
        await([this] { return with.browser.isWaiting(); });
        break;
    case AgentState::SignInFailed:
        signInTo("orvelagent://callback?error=The%20web%20site%20is%20closed%20for%20today.");
        break;
    case AgentState::NoAccount:
        signInTo("orvelagent://callback?error=no_account");
        break;
    case AgentState::LongTexts:
        await([this] { return !model_->collector().history().empty(); });
        signInTo("orvelagent://callback?error=no_account");
        break;
    case AgentState::FullDiskAccessMissing:
        await([this] { return model_->blockedReason() && model_->auth().isSignedIn(); });
        break;
    case AgentState::SignedOut:
    case AgentState::EverythingMissing:
        break;
    default:
        await([this] { return !model_->collector().history().empty(); });
        model_->collector().setPaused(state == AgentState::Paused);
        break;
    }
    // Also process the events that this causes.
    processEvents();
}

} // namespace orvel::test
