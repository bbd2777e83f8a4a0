// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>

namespace orvel::test {

/// The kinds of calls that the library kill-at-call counts.
enum class CallKind : unsigned {
    /// To a regular file.
    Write,
    Send,
    /// Only those that received something.
    Receive,
    /// Also making a link.
    Rename,
    Remove,
    /// Of files and folders.
    Create,
    /// Also locking.
    Synchronize,
    /// Of a file's size, content or mode by other calls.
    Change,
};

inline constexpr std::size_t callKinds = 8;

using CallCounts = std::array<std::uint64_t, callKinds>;

/// The call at which a program is killed.
struct KillPoint {
    enum class Moment : unsigned {
        Before,
        After,
        /// After half of the bytes; after the call if it has none.
        Half,
    };

    CallKind kind = CallKind::Write;
    /// From 1.
    std::uint64_t number = 1;
    Moment moment = Moment::Before;
};

/// Kills a program, which must have the given name, at one of its calls. Loads the library
/// kill-at-call into the program through variables of its environment. The programs that it starts
/// are not affected.
class KillAtCall final {
public:
    /// `counts` is a file for the counts, which is created.
    KillAtCall(std::filesystem::path counts, std::string program);

    /// Also makes the system refuse files without a name, which some file systems do not have.
    void refuseUnnamedFiles() { refusesUnnamedFiles_ = true; }

    /// The variables of a run that is only counted.
    [[nodiscard]] std::map<std::string, std::string> counting() const;
    /// The variables of a run that is killed.
    [[nodiscard]] std::map<std::string, std::string> killing(const KillPoint& point) const;
    /// The calls of the last run so far.
    [[nodiscard]] CallCounts counts() const;

    /// One of the calls that a run with these counts makes. Each kind is as likely as the others,
    /// so that a rename is not lost among many writes.
    [[nodiscard]] static KillPoint choose(const CallCounts& counts, std::mt19937& random);

private:
    std::filesystem::path counts_;
    std::string program_;
    bool refusesUnnamedFiles_ = false;
};

/// For findings.
[[nodiscard]] std::string describe(const KillPoint& point);

} // namespace orvel::test
