// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <QObject>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// Stands in for the network: accepts every upload and writes its records, exactly as they would
/// have been sent, as JSON Lines. It also answers the call for the known handles.
class PreviewSession final : public URLSession {
public:
    /// Writes to the file, or to standard output. Throws `tavrin::PlatformError` when the file
    /// cannot be made.
    PreviewSession(
        const std::optional<std::filesystem::path>& file, std::vector<std::string> knownHandles);

    [[nodiscard]] std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) override;

private:
    struct FileCloser {
        void operator()(std::FILE* file) const;
    };

    URLResult answer(const URLRequest& request);
    URLResult acceptUpload(const std::string& body);

    std::unique_ptr<std::FILE, FileCloser> file_;
    std::vector<std::string> knownHandles_;
    /// The completions still to come end with the session.
    QObject callbackContext_;
};

/// The JSON array of strings in the file. Throws `tavrin::PlatformError` when it cannot be read and
/// `tavrin::JSONDecodingError` when it is something else.
[[nodiscard]] std::vector<std::string> readKnownHandles(const std::filesystem::path& file);

} // namespace orvel
