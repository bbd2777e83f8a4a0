// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <boost/json/fwd.hpp>
#include <boost/json/storage_ptr.hpp>

#include <exception>
#include <string>

namespace orvel::service {

/// A request that is not carried out, and its reply. `what()` is a sentence for the user.
class Refusal final : public std::exception {
public:
    Refusal(int status, std::string code, std::string sentence)
        : status_(status), code_(std::move(code)), sentence_(std::move(sentence)) {}

    /// Status 400 with the code "invalid_request".
    [[nodiscard]] static Refusal invalidRequest(std::string sentence);

    [[nodiscard]] int status() const { return status_; }
    [[nodiscard]] const std::string& code() const { return code_; }
    [[nodiscard]] const char* what() const noexcept override { return sentence_.c_str(); }

private:
    int status_;
    std::string code_;
    std::string sentence_;
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
