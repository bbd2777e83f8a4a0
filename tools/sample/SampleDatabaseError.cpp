// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleDatabaseError.h"

#include <fmt/format.h>

#include <utility>

namespace orvel {

namespace {

std::string describe(const SampleDatabaseError::Case& error) {
    struct Visitor {
        std::string operator()(const SampleDatabaseError::AlreadyExists& it) const {
            return fmt::format("{} already exists.", it.path);
        }
        std::string operator()(const SampleDatabaseError::AnotherSample& it) const {
            return fmt::format("{} is not a sample database made with this seed.", it.path);
        }
        std::string operator()(const SampleDatabaseError::NotLater& it) const {
            return fmt::format("{} already holds messages from that time or later.", it.path);
        }
        std::string operator()(const SampleDatabaseError::File& it) const {
            return fmt::format("Could not write {}: {}.", it.path, it.reason);
        }
        std::string operator()(const SampleDatabaseError::Database& it) const {
            return fmt::format("Could not write {}: {}.", it.path, it.message);
        }
    };
    return std::visit(Visitor(), error);
}

} // namespace

SampleDatabaseError::SampleDatabaseError(Case error)
    : error_(std::move(error)), description_(describe(error_)) {}

} // namespace orvel
