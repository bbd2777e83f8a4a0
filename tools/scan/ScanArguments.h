// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/ScanDefaults.h"
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

/// What the command line of `orvel-scan` asks for.
struct ScanArguments {
    enum class Action { Scan, SignIn, SignOut, ShowAccount };

    Action action = Action::Scan;
    /// Scheme, host and port, without a trailing slash; the built-in service when absent.
    std::optional<std::string> apiURL;
    std::optional<std::filesystem::path> certificateFile;
    /// The stored session's when absent.
    std::optional<tavrin::Secret> token;
    std::optional<std::string> sourcePath;
    std::optional<std::filesystem::path> stateFile;
    /// The user's own choice when absent.
    std::optional<tavrin::CollectionMode> mode;
    /// The user's own choice when absent.
    std::optional<tavrin::ThreadScope> scope;
    std::optional<tavrin::Date> since;
    bool usesAddressBook = true;
    double backfillPause = ScanDefaults::backfillPause.count();
    std::vector<double> retryDelays = ScanDefaults::retryDelays();
    bool isPreview = false;
    /// Standard output when absent.
    std::optional<std::filesystem::path> previewFile;
    std::optional<std::filesystem::path> knownHandlesFile;
    bool printsJSON = false;
    bool isVerbose = false;
};

/// Arguments that make no sense; `what()` says which and why.
class UsageError final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The exit status for it.
inline constexpr int usageStatus = 2;

/// The command line ends the program before it does anything: with help (status 0), or because it
/// makes no sense (status 2).
struct EarlyExit {
    int status;
    std::string message;
};

/// Reads the command line, the token file and the environment's token, which it takes out of the
/// environment. No message ever holds a token.
[[nodiscard]] std::variant<ScanArguments, EarlyExit>
parseScanArguments(int argc, const char* const* argv);

} // namespace orvel
