// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/SettingsFormat.h"

#include <QBuffer>
#include <QString>

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace orvel {

namespace {

std::optional<QSettings::SettingsMap> read(const QByteArray& lines) {
    QBuffer buffer;
    buffer.setData(lines);
    buffer.open(QIODevice::ReadOnly);
    QSettings::SettingsMap values;
    return SettingsFormat::readLines(buffer, values) ? std::optional(values) : std::nullopt;
}

} // namespace

TEST(SettingsFormatTest, AValueIsReadUnchanged) {
    using Value = SettingsFormat::Value;
    const QString key = QStringLiteral("key");
    for (const Value& value :
         {Value(std::string()),
          Value(std::string("text")),
          Value(std::string("true")),
          Value(std::string("-1")),
          Value(std::string("'")),
          Value(std::string("a\nb\\n\r")),
          Value(std::string("\0x", 2)),
          Value(std::string("\xEF\xBB\xBFtext")),
          Value(std::string("\xEF\xBB\xBF")),
          Value(std::string("\xEF\xBB\xBF\xEF\xBB\xBF'")),
          Value(true),
          Value(std::int64_t{-5})}) {
        const std::string text = SettingsFormat::textOf(value);
        const auto values = read(SettingsFormat::lines({{key, QString::fromStdString(text)}}));
        ASSERT_TRUE(values) << text;
        EXPECT_EQ(SettingsFormat::valueOf(values->value(key).toString().toStdString()), value)
            << text;
    }
}

TEST(SettingsFormatTest, WhatWasReadIsWrittenUnchanged) {
    for (const std::string text :
         {"\xEF\xBB\xBF=12\n",
          "\xEF\xBB\xBF#a=12\n",
          "\xEF\xBB\xBF\xEF\xBB\xBF!=12\n",
          "a=\xEF\xBB\xBF\n"}) {
        const auto values = read(QByteArray::fromStdString(text));
        ASSERT_TRUE(values) << text;
        EXPECT_EQ(SettingsFormat::lines(*values).toStdString(), text);
    }
}

TEST(SettingsFormatTest, AKeyOfIllFormedTextIsReadAgain) {
    for (const char* text : {"\xD4=12\n", "\x9F=12\n", "\xEF\xBB=12\n"}) {
        const auto values = read(text);
        ASSERT_TRUE(values) << text;
        EXPECT_EQ(read(SettingsFormat::lines(*values)), values) << text;
    }
}

TEST(SettingsFormatTest, AnyOtherTextIsRefused) {
    for (const char* text : {"a\n", "=a\n", "a=\\x\n", "a=\\\n", "a=\xFF\n"}) {
        EXPECT_FALSE(read(text)) << text;
    }
}

} // namespace orvel
