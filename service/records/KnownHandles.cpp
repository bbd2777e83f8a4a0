// SPDX-License-Identifier: Apache-2.0
#include "service/records/KnownHandles.h"

#include "core/messages/HandleNormalizer.h"
#include "service/support/ServiceError.h"

#include <boost/json.hpp>

#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace orvel::service {

namespace {

std::optional<std::string> matchHint(std::string_view handle) {
    return tavrin::HandleNormalizer::matchHint(tavrin::Handle::classify(handle));
}

} // namespace

KnownHandles::KnownHandles(const std::vector<std::string>& handles) {
    for (const auto& handle : handles) {
        if (auto hint = matchHint(handle)) {
            hints_.insert(std::move(*hint));
        }
    }
}

const std::string* KnownHandles::find(std::string_view handle) const {
    const auto hint = matchHint(handle);
    const auto found = hint ? hints_.find(*hint) : hints_.end();
    return found == hints_.end() ? nullptr : &*found;
}

std::vector<std::string> readKnownHandles(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        throw ServiceError(ServiceError::File{file.string(), "it cannot be read"});
    }
    boost::json::error_code error;
    const auto json = boost::json::parse(text, error);
    const auto handles = error ? boost::json::result<std::vector<std::string>>(error)
                               : boost::json::try_value_to<std::vector<std::string>>(json);
    if (!handles) {
        throw ServiceError(ServiceError::File{file.string(), "it is not a JSON array of strings"});
    }
    return *handles;
}

} // namespace orvel::service
