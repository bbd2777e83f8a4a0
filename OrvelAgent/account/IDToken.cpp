// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/IDToken.h"

#include "OrvelAgent/network/SecretJSON.h"
#include "core/JSON.h"

#include <QByteArray>
#include <QByteArrayView>

#include <boost/json/value.hpp>

#include <cstddef>
#include <exception>
#include <iterator>

namespace orvel {

std::string userIDOf(std::string_view idToken) {
    // Header, claims and signature.
    const std::size_t start = idToken.find('.');
    const std::size_t end = idToken.find('.', start + 1);
    if (start == std::string_view::npos || end == std::string_view::npos) {
        return {};
    }
    const std::string_view claims = idToken.substr(start + 1, end - start - 1);
    const auto decoded = QByteArray::fromBase64Encoding(
        QByteArray(claims.data(), std::ssize(claims)),
        QByteArray::Base64UrlEncoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) {
        return {};
    }
    try {
        const boost::json::value json = parseSecretJSON((*decoded).toStdString());
        return tavrin::stringAt(tavrin::asObject(json), "sub");
    } catch (const std::exception&) {
        // Some other token with two dots.
        return {};
    }
}

} // namespace orvel
