// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

/// Writes lines to a descriptor and never waits for a terminal, a pipe or a socket.
///
/// A terminal does not accept lines while the user has stopped it (Ctrl+S), and a pipe while it is
/// full. Lines are dropped then. Not thread-safe.
class LineOutput final {
public:
    /// Borrows the descriptor and does not change its flags, which other processes share.
    explicit LineOutput(int descriptor);

    /// The line ends with a line break.
    void write(std::string_view line);

private:
    /// Returns how many bytes were accepted.
    [[nodiscard]] std::size_t writeSome(std::string_view bytes) const;
    [[nodiscard]] ssize_t writeOnce(std::string_view bytes) const;

    enum class Kind {
        /// A local file never makes its writer wait.
        File,
        Socket,
        /// Opened again, so that only this object does not wait.
        Reopened,
        /// Could not be opened again.
        Borrowed,
        /// Nothing can be written. The number may later stand for another file.
        Closed,
    };

    int descriptor_;
    tavrin::FileDescriptor reopened_;
    Kind kind_ = Kind::Borrowed;
    /// The end of a line of which only the beginning was accepted.
    std::string rest_;
};

} // namespace orvel
