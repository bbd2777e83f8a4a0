// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ScanRun.h"
#include "core/CancellationToken.h"
#include "platform/Platform.h"
#include "tools/scan/Command.h"
#include "tools/scan/ScanArguments.h"
#include "tools/scan/ScanReport.h"

#include <QCoroTask>

#include <memory>
#include <optional>
#include <string>

namespace orvel {

class PreviewSession;
class OverlayUserDefaults;

/// One scan from a terminal, on the agent's own services. Main thread.
class ScanCommand final : public Command {
public:
    /// Throws what cannot begin: `UsageError` for a preview that lacks the known handles,
    /// `tavrin::PlatformError` for files that cannot be read or written,
    /// `tavrin::JSONDecodingError` for a list of known handles that is none.
    explicit ScanCommand(ScanArguments arguments);
    ~ScanCommand() override;

    QCoro::Task<int> run() override;
    void cancel() override;

private:
    [[nodiscard]] APIClient makeClient(URLSession& session);
    QCoro::Task<> awaitSession();
    QCoro::Task<> awaitStorage();
    /// Whether all of it could be written.
    [[nodiscard]] bool print(const CollectorService::ScanSummary& summary);

    ScanArguments arguments_;
    tavrin::CancellationSource cancellation_;
    bool isInteractive_;
    ScanRun::Choices choices_;
    Platform platform_;
    /// Where progress is kept when not in the agent's own user defaults.
    std::unique_ptr<tavrin::UserDefaults> stateDefaults_;
    std::unique_ptr<OverlayUserDefaults> previewDefaults_;
    std::unique_ptr<PreviewSession> previewSession_;
    std::unique_ptr<Worker> worker_;
    /// When no token was given.
    std::unique_ptr<AuthService> auth_;
    std::unique_ptr<WatermarkStore> watermarkStore_;
    std::unique_ptr<ContactBridge> contacts_;
    std::unique_ptr<CollectorService> collector_;
    std::unique_ptr<ScanRun> scanRun_;
    std::unique_ptr<ScanProgressLine> progressLine_;
};

} // namespace orvel
