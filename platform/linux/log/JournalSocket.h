// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/un.h>

#include <filesystem>
#include <initializer_list>
#include <string_view>

namespace orvel {

/// Writes to the system journal in its native protocol: one datagram is one entry.
///
/// Never blocks, unlike libsystemd: drops the entry when the journal is busy or not running.
/// Thread-safe.
class JournalSocket final {
public:
    /// The name consists of capital letters, digits and underscores; the value may be any bytes.
    struct Field {
        std::string_view name;
        std::string_view value;
    };

    /// The journal's socket.
    [[nodiscard]] static std::filesystem::path systemPath();

    /// The socket need not exist yet.
    explicit JournalSocket(const std::filesystem::path& path);

    void send(std::initializer_list<Field> fields) const;

private:
    tavrin::FileDescriptor socket_;
    sockaddr_un address_{};
};

} // namespace orvel
