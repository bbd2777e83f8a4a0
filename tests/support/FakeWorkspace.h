// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Workspace.h"

#include <QObject>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

/// A desktop that only takes notes.
class FakeWorkspace final : public Workspace {
public:
    /// Opening fails with this when set.
    std::optional<tavrin::PlatformError> openError;
    /// Everything that was to be opened.
    std::vector<std::string> openedURLs;
    bool hasDebugger = false;

    void openURL(std::string url, Completion completion) override {
        openedURLs.push_back(std::move(url));
        QMetaObject::invokeMethod(
            &context_,
            [completion = std::move(completion), error = openError] { completion(error); },
            Qt::QueuedConnection);
    }

    [[nodiscard]] bool isDebuggerAttached() const override { return hasDebugger; }

private:
    QObject context_;
};

} // namespace orvel::test
