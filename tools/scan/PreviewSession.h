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

/// Replaces the network in a preview. Accepts every upload and writes its records, unchanged, as
/// JSON Lines. On a terminal, characters that can control it are JSON escapes. Also replies with
/// the known handles.
class PreviewSession final : public URLSession {
public:
    /// Writes to the file, which only this user may read (`tavrin::openOwnFile`), or to standard
    /// output. Throws `tavrin::PlatformError` if the file cannot be created or used.
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
    bool isTerminal_ = false;
    std::vector<std::string> knownHandles_;
    /// Its destruction drops the pending completions.
    QObject callbackContext_;
};

/// Reads a JSON array of strings. Throws `tavrin::PlatformError` if the file cannot be read, and
/// `tavrin::JSONDecodingError` if it contains anything else.
[[nodiscard]] std::vector<std::string> readKnownHandles(const std::filesystem::path& file);

} // namespace orvel
