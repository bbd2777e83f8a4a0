// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#include <QByteArray>
#include <QSettings>

#include <string>

class QIODevice;

/// The text of the settings file (see `SettingsUserDefaults`).
namespace orvel::SettingsFormat {

using Value = tavrin::UserDefaults::Value;

/// Each line is a key, an equals sign and a value; lines that start with "#" are skipped. Returns
/// false for any other text, and for escapes that `lines` never writes.
bool readLines(QIODevice& device, QSettings::SettingsMap& values);

/// The lines that `readLines` reads as these values.
[[nodiscard]] QByteArray lines(const QSettings::SettingsMap& values);

/// The value of a line, without escapes. Its text determines the type.
[[nodiscard]] Value valueOf(const std::string& text);

/// The text that `valueOf` reads as this value. The year of a date must have four digits.
[[nodiscard]] std::string textOf(const Value& value);

} // namespace orvel::SettingsFormat
