// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Workspace.h"

#include <QObject>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

/// A desktop that only records calls.
class FakeWorkspace final : public Workspace {
public:
    /// If set, opening fails with this error.
    std::optional<tavrin::PlatformError> openError;
    /// All requests, including failed ones.
    std::vector<std::string> openedURLs;
    std::vector<SettingsPane> openedSettings;
    std::vector<std::string> revealedFiles;

    void openURL(std::string url, Completion completion) override {
        openedURLs.push_back(std::move(url));
        answer(std::move(completion));
    }

    void openSettings(SettingsPane pane, Completion completion) override {
        openedSettings.push_back(pane);
        answer(std::move(completion));
    }

    void revealFile(std::string path, Completion completion) override {
        revealedFiles.push_back(std::move(path));
        answer(std::move(completion));
    }

private:
    void answer(Completion completion) {
        QMetaObject::invokeMethod(
            &callbackContext_,
            [completion = std::move(completion), error = openError] { completion(error); },
            Qt::QueuedConnection);
    }

    QObject callbackContext_;
};

} // namespace orvel::test
