// SPDX-License-Identifier: Apache-2.0
#include "service/support/ServiceError.h"

#include <utility>

namespace orvel::service {

namespace {

struct Description {
    std::string operator()(const ServiceError::Listen& error) const {
        return "Could not listen on 127.0.0.1 port " + std::to_string(error.port) + ": " +
               error.reason + ".";
    }
    std::string operator()(const ServiceError::Store& error) const {
        return "The store " + error.path + " failed: " + error.reason + ".";
    }
    std::string operator()(const ServiceError::Certificate& error) const {
        return "Could not create the certificate: " + error.reason + ".";
    }
    std::string operator()(const ServiceError::File& error) const {
        return "The file " + error.path + " cannot be used: " + error.reason + ".";
    }
    std::string operator()(const ServiceError::Random&) const {
        return "Could not get random bytes for a token.";
    }
};

} // namespace

ServiceError::ServiceError(Case error)
    : error_(std::move(error)), description_(std::visit(Description{}, error_)) {}

} // namespace orvel::service
