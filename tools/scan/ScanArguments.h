// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/ScanDefaults.h"
#include "OrvelAgent/scan/UploadRetryDelays.h"
#include "core/CollectionPreferences.h"
#include "core/Date.h"
#include "core/Secret.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace orvel {

/// The checked command line of `orvel-scan`.
struct ScanArguments {
    enum class Action { Scan, SignIn, SignOut, ShowAccount };

    Action action = Action::Scan;
    /// Scheme, host and port, without a trailing slash. The default is the built-in service.
    std::optional<std::string> apiURL;
    std::optional<std::filesystem::path> certificateFile;
    /// The default is the token of the stored session.
    std::optional<tavrin::Secret> token;
    std::optional<std::string> sourcePath;
    std::optional<std::filesystem::path> stateFile;
    /// The default is the user's choice.
    std::optional<tavrin::CollectionMode> mode;
    /// The default is the user's choice.
    std::optional<tavrin::ThreadScope> scope;
    std::optional<tavrin::Date> since;
    bool usesAddressBook = true;
    double backfillPause = ScanDefaults::backfillPause.count();
    std::vector<double> retryDelays = uploadRetryDelays();
    bool isPreview = false;
    /// The default is standard output.
    std::optional<std::filesystem::path> previewFile;
    std::optional<std::filesystem::path> knownHandlesFile;
    bool printsJSON = false;
    bool isVerbose = false;
};

/// Invalid arguments. `what()` names the argument and the reason, and refers to --help.
class UsageError final : public std::runtime_error {
public:
    explicit UsageError(const std::string& problem)
        : std::runtime_error(problem + "\nRun orvel-scan --help for the usage.") {}
};

/// Parses the command line, reads the token file, and removes the token from the environment.
/// Returns the text of --help or --version if that was asked for. Throws `UsageError`. No message
/// contains a token.
[[nodiscard]] std::variant<ScanArguments, std::string>
parseScanArguments(int argc, const char* const* argv);

} // namespace orvel
