// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/QueryItems.h"

#include "core/Secret.h"
#include "core/Text.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <cstddef>
#include <utility>

namespace orvel {

namespace {

/// Whether the character needs no percent-encoding in a name or a value.
bool isPlain(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') ||
           std::string_view("-._~!$'()*,:@?+").find(character) != std::string_view::npos;
}

void appendEncoded(std::string& query, std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char character : text) {
        if (isPlain(character)) {
            query += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            query += '%';
            query += digits[byte >> 4U];
            query += digits[byte & 0xFU];
        }
    }
}

std::string decoded(QByteArrayView text) {
    QByteArray bytes =
        QByteArray::fromPercentEncoding(QByteArray::fromRawData(text.data(), text.size()));
    std::string repaired =
        tavrin::repairedUTF8({bytes.constData(), static_cast<std::size_t>(bytes.size())});
    tavrin::wipe(bytes.data(), static_cast<std::size_t>(bytes.size()));
    return repaired;
}

} // namespace

std::string percentEncodedQuery(const std::vector<QueryItem>& items) {
    std::size_t longest = 0;
    for (const QueryItem& item : items) {
        longest += 3 * (item.name.size() + (item.value ? item.value->size() : 0)) + 2;
    }
    std::string query;
    query.reserve(longest);
    for (const QueryItem& item : items) {
        if (&item != &items.front()) {
            query += '&';
        }
        appendEncoded(query, item.name);
        if (item.value) {
            query += '=';
            appendEncoded(query, *item.value);
        }
    }
    return query;
}

std::optional<std::vector<QueryItem>> queryItems(std::string_view url) {
    const QUrl parsed(
        QString::fromUtf8(url.data(), static_cast<qsizetype>(url.size())), QUrl::StrictMode);
    if (!parsed.isValid()) {
        return std::nullopt;
    }
    std::vector<QueryItem> items;
    if (!parsed.hasQuery()) {
        return items;
    }
    QByteArray query = parsed.query(QUrl::FullyEncoded).toLatin1();
    for (qsizetype start = 0; start <= query.size();) {
        qsizetype end = query.indexOf('&', start);
        if (end < 0) {
            end = query.size();
        }
        const QByteArrayView item = QByteArrayView(query).sliced(start, end - start);
        const qsizetype equals = item.indexOf('=');
        if (equals < 0) {
            items.push_back({decoded(item), std::nullopt});
        } else {
            items.push_back({decoded(item.first(equals)), decoded(item.sliced(equals + 1))});
        }
        start = end + 1;
    }
    tavrin::wipe(query.data(), static_cast<std::size_t>(query.size()));
    return items;
}

} // namespace orvel
