// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ScanRun.h"
#include "core/CancellationToken.h"
#include "core/Date.h"
#include "platform/Platform.h"
#include "tools/scan/Command.h"
#include "tools/scan/ScanArguments.h"
#include "tools/scan/ScanReport.h"

#include <QCoroTask>

#include <memory>
#include <optional>
#include <string>

namespace tavrin {

class LiveSnapshots;

} // namespace tavrin

namespace orvel {

class PreviewSession;
class OverlayUserDefaults;

/// Runs one scan with the agent's services. Main thread.
class ScanCommand final : public Command {
public:
    /// How long the keychain may take to store the session after a signal. Shorter than the limit
    /// for the whole process.
    static constexpr tavrin::Seconds shutdownTimeout{1.5};

    /// Throws `UsageError` for a preview without the known handles it needs,
    /// `tavrin::PlatformError` if a file cannot be read or written, and `tavrin::JSONDecodingError`
    /// if the list of known handles is invalid.
    ///
    /// Lists the copy of the database while it exists.
    ScanCommand(ScanArguments arguments, std::shared_ptr<tavrin::LiveSnapshots> liveSnapshots);
    ~ScanCommand() override;

    QCoro::Task<int> run() override;
    void cancel() override;

private:
    QCoro::Task<std::optional<AccountSession>> session(tavrin::CancellationToken cancellation);
    QCoro::Task<> awaitSession();
    QCoro::Task<> awaitStorage();
    /// Returns whether everything was written.
    [[nodiscard]] bool print(const CollectorService::ScanSummary& summary);

    ScanArguments arguments_;
    tavrin::CancellationSource cancellation_;
    bool isInteractive_;
    ScanRun::Choices choices_;
    Platform platform_;
    /// Only with --state.
    std::unique_ptr<tavrin::UserDefaults> stateDefaults_;
    std::unique_ptr<OverlayUserDefaults> previewDefaults_;
    std::unique_ptr<PreviewSession> previewSession_;
    std::unique_ptr<Worker> worker_;
    /// Only without a given token.
    std::unique_ptr<AuthService> auth_;
    std::unique_ptr<WatermarkStore> watermarkStore_;
    std::unique_ptr<ContactBridge> contacts_;
    std::unique_ptr<CollectorService> collector_;
    std::unique_ptr<ScanRun> scanRun_;
    std::unique_ptr<ScanProgressLine> progressLine_;
};

} // namespace orvel
