// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/SettingsFormat.h"

#include "core/Text.h"

#include <QDateTime>
#include <QIODevice>
#include <QString>
#include <QStringDecoder>
#include <QVariant>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>

namespace orvel {

namespace {

/// The text with line breaks and backslashes escaped.
QByteArray escaped(const QByteArray& text) {
    QByteArray result = text;
    result.replace('\\', "\\\\").replace('\n', "\\n");
    return result;
}

/// No value for escapes that `escaped` never writes.
std::optional<QByteArray> unescaped(const QByteArray& text) {
    QByteArray result;
    result.reserve(text.size());
    for (auto at = text.begin(); at != text.end(); ++at) {
        if (*at != '\\') {
            result.append(*at);
        } else if (++at != text.end() && (*at == '\\' || *at == 'n')) {
            result.append(*at == 'n' ? '\n' : '\\');
        } else {
            return std::nullopt;
        }
    }
    return result;
}

/// Unlike `QString::fromUtf8`, keeps a byte order mark at the start. Without it, the key could be
/// empty or begin a comment, and would not be read again.
QString decoded(const QByteArray& text) {
    // With a state, an incomplete character at the end would be left out.
    QStringDecoder decoder(
        QStringDecoder::Utf8,
        QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    return decoder(text);
}

QDateTime qDateTime(tavrin::Date date) {
    const auto milliseconds = std::chrono::round<std::chrono::milliseconds>(date);
    return QDateTime::fromMSecsSinceEpoch(milliseconds.time_since_epoch().count(), Qt::UTC);
}

} // namespace

bool SettingsFormat::readLines(QIODevice& device, QSettings::SettingsMap& values) {
    while (!device.atEnd()) {
        QByteArray line = device.readLine();
        if (line.endsWith('\n')) {
            line.chop(1);
        }
        if (line.isEmpty() || line.startsWith('#')) {
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        const std::optional<QByteArray> value = unescaped(line.mid(equals + 1));
        if (equals < 1 || !value || !value->isValidUtf8()) {
            return false;
        }
        values.insert(decoded(line.left(equals)), decoded(*value));
    }
    return true;
}

QByteArray SettingsFormat::lines(const QSettings::SettingsMap& values) {
    QByteArray lines;
    for (auto entry = values.begin(); entry != values.end(); ++entry) {
        lines += entry.key().toUtf8() + '=' + escaped(entry.value().toString().toUtf8()) + '\n';
    }
    return lines;
}

SettingsFormat::Value SettingsFormat::valueOf(const std::string& text) {
    if (text == "true" || text == "false") {
        return text == "true";
    }
    std::int64_t integer = 0;
    std::from_chars(text.data(), text.data() + text.size(), integer);
    if (std::to_string(integer) == text) {
        return integer;
    }
    // Qt needs long to see that a text is no date.
    constexpr std::string_view someDate = "2024-03-09T17:05:42.123Z";
    if (text.size() == someDate.size() && text.back() == someDate.back()) {
        const QString qText = QString::fromStdString(text);
        const QDateTime date = QDateTime::fromString(qText, Qt::ISODateWithMs);
        if (date.isValid() && date.toUTC().toString(Qt::ISODateWithMs) == qText) {
            return tavrin::Date(std::chrono::milliseconds(date.toMSecsSinceEpoch()));
        }
    }
    return text.starts_with('\'') ? text.substr(1) : text;
}

std::string SettingsFormat::textOf(const Value& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        return std::to_string(*integer);
    }
    if (const auto* boolean = std::get_if<bool>(&value)) {
        return *boolean ? "true" : "false";
    }
    if (const auto* date = std::get_if<tavrin::Date>(&value)) {
        return qDateTime(*date).toString(Qt::ISODateWithMs).toStdString();
    }
    const auto& text = std::get<std::string>(value);
    // Qt skips a byte order mark at the start.
    const bool isPlain =
        tavrin::withoutByteOrderMark(text).size() == text.size() && valueOf(text) == value;
    return isPlain ? text : "'" + text;
}

} // namespace orvel
