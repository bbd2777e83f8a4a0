// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <boost/json/fwd.hpp>
#include <boost/json/storage_ptr.hpp>

#include <stdexcept>
#include <string>

namespace orvel::service {

/// A request that is not carried out, and its reply. `what()` is a sentence for the user.
class Refusal final : public std::runtime_error {
public:
    Refusal(int status, std::string code, const std::string& sentence)
        : std::runtime_error(sentence), status_(status), code_(std::move(code)) {}

    /// Status 400 with the code "invalid_request".
    [[nodiscard]] static Refusal invalidRequest(const std::string& sentence);

    [[nodiscard]] int status() const { return status_; }
    [[nodiscard]] const std::string& code() const { return code_; }

private:
    int status_;
    std::string code_;
};

/// `{"ok": true, "data": …}`
[[nodiscard]] Reply success(const boost::json::object& data);

/// `{"ok": false, "error": …, "code": …}`
[[nodiscard]] Reply refused(const Refusal& refusal);

/// The request's body as a JSON object, allocated in `memory`. Throws `Refusal` if the content type
/// is not JSON or the body is not a JSON object.
[[nodiscard]] boost::json::object
jsonBody(const Request& request, boost::json::storage_ptr memory = {});

} // namespace orvel::service
