// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Workspace.h"
#include "platform/macos/support/PendingCalls.h"

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

@class NSWorkspace;

namespace orvel {

/// Uses an `NSWorkspace`.
class AppKitWorkspace final : public Workspace {
public:
    explicit AppKitWorkspace(NSWorkspace* workspace);

    void openURL(std::string url, Completion completion) override;
    void openSettings(SettingsPane pane, Completion completion) override;
    void revealFile(std::string path, Completion completion) override;

private:
    using Openings = PendingCalls<std::optional<tavrin::PlatformError>>;

    void open(NSURL* url, std::string doing, Completion completion);

    NSWorkspace* workspace_;
    Openings openings_;
};

} // namespace orvel
