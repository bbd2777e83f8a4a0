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

/// Invalid arguments. `what()` names the argument and the reason.
class UsageError final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The exit status after a `UsageError`.
inline constexpr int usageStatus = 2;

/// The program ends at once, to print help or the version (status 0), or because the arguments are
/// invalid (status 2).
struct EarlyExit {
    int status;
    std::string message;
};

/// Parses the command line, reads the token file, and removes the token from the environment. No
/// message contains a token.
[[nodiscard]] std::variant<ScanArguments, EarlyExit>
parseScanArguments(int argc, const char* const* argv);

} // namespace orvel
