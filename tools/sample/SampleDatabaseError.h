// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>
#include <variant>

namespace orvel {

/// Why a sample database could not be created or extended.
class SampleDatabaseError final : public std::exception {
public:
    struct AlreadyExists {
        std::string path;
    };
    /// The database was made with another seed, or is not a sample at all.
    struct AnotherSample {
        std::string path;
    };
    struct NotLater {
        std::string path;
    };
    struct File {
        std::string path;
        std::string reason;
    };
    struct Database {
        std::string path;
        std::string message;
    };
    using Case = std::variant<AlreadyExists, AnotherSample, NotLater, File, Database>;

    explicit SampleDatabaseError(Case error);

    [[nodiscard]] const Case& error() const { return error_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    Case error_;
    std::string description_;
};

} // namespace orvel
