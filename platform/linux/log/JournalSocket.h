// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/un.h>

#include <filesystem>
#include <initializer_list>
#include <string_view>

namespace orvel {

/// The system journal, in its own protocol: one datagram is one entry.
///
/// libsystemd speaks it too, but waits while the journal is busy. This never waits: an entry that
/// the journal does not take at once is dropped, as is one for a journal that does not run.
/// Thread-safe.
class JournalSocket final {
public:
    /// A name is of capital letters, digits and underscores; a value may be any bytes.
    struct Field {
        std::string_view name;
        std::string_view value;
    };

    /// Where the journal listens.
    [[nodiscard]] static std::filesystem::path systemPath();

    /// Nothing needs to listen there yet.
    explicit JournalSocket(const std::filesystem::path& path);

    void send(std::initializer_list<Field> fields) const;

private:
    tavrin::FileDescriptor socket_;
    sockaddr_un address_{};
};

} // namespace orvel
