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

/// The kinds of calls that the library fault-at-call counts.
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
    // The kinds up to here change something, and only they are killed at.

    /// From a regular file.
    Read,
    /// Of existing files and folders.
    Open,
    /// Of a regular file.
    Close,
    /// Of a file's size, times and existence.
    Inspect,
    Connect,
    /// Of random bytes from the system.
    Random,
    /// Creating a socket, a pipe or another descriptor that is no file.
    Descriptor,
    /// Starting a thread.
    Thread,
    /// Of memory, while `main` runs.
    Allocate,
};

inline constexpr std::size_t changingCallKinds = 8;
inline constexpr std::size_t callKinds = 17;

using CallCounts = std::array<std::uint64_t, callKinds>;

/// What happens at one of a program's calls.
struct CallFault {
    enum class Action : unsigned {
        KillBefore,
        KillAfter,
        /// After half of the bytes; after the call if it has none.
        KillHalf,
        /// The call does nothing and fails. `close` and receiving fail afterwards.
        Fail,
        /// Also all later calls of the kind.
        FailFromThen,
    };

    CallKind kind = CallKind::Write;
    /// From 1.
    std::uint64_t number = 1;
    Action action = Action::KillBefore;
    /// The `errno` of the calls that fail.
    int error = 0;
};

/// Kills a program, which must have the given name, at one of its calls, or makes the call fail.
/// Loads the library fault-at-call into the program through variables of its environment. The
/// programs that it starts are not affected. With the variable FAULT_AT_CALL_TRACE, it prints where
/// the failing call comes from.
class FaultAtCall final {
public:
    /// `counts` is a file for the counts, which is created.
    FaultAtCall(std::filesystem::path counts, std::string program);

    /// Also makes the system refuse files without a name, which some file systems do not have.
    void refuseUnnamedFiles() { refusesUnnamedFiles_ = true; }

    /// Gives the program this file instead of the system's certificates: reading those many makes
    /// most of the calls of a short run.
    void replaceSystemCertificates(const std::filesystem::path& file) { certificates_ = file; }

    /// The variables of a run that is only counted.
    [[nodiscard]] std::map<std::string, std::string> counting() const;
    /// The variables of a run with the fault.
    [[nodiscard]] std::map<std::string, std::string> with(const CallFault& fault) const;
    /// The calls of the last run so far.
    [[nodiscard]] CallCounts counts() const;

    /// A kill at one of the calls that a run with these counts makes. Each kind is as likely as the
    /// others, so that a rename is not lost among many writes.
    [[nodiscard]] static CallFault chooseKill(const CallCounts& counts, std::mt19937& random);

private:
    std::filesystem::path counts_;
    std::string program_;
    std::filesystem::path certificates_;
    bool refusesUnnamedFiles_ = false;
};

/// For findings.
[[nodiscard]] std::string describe(const CallFault& fault);

} // namespace orvel::test
