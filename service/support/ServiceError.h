// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <variant>

namespace orvel::service {

/// Why the service cannot start, store or create tokens.
class ServiceError final : public std::exception {
public:
    struct Listen {
        std::uint16_t port;
        std::string reason;
    };
    struct Store {
        std::string path;
        std::string reason;
    };
    struct Certificate {
        std::string reason;
    };
    /// A file could not be read, written or parsed.
    struct File {
        std::string path;
        std::string reason;
    };
    /// The system provided no random bytes.
    struct Random {};
    using Case = std::variant<Listen, Store, Certificate, File, Random>;

    explicit ServiceError(Case error);

    [[nodiscard]] const Case& error() const { return error_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    Case error_;
    std::string description_;
};

} // namespace orvel::service
