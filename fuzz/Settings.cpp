// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/WatermarkStore.h"
#include "core/CollectionPreferences.h"
#include "core/Text.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/linux/storage/SettingsFormat.h"

#include <QBuffer>
#include <QByteArray>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

using namespace orvel;

namespace {

using SettingsFormat::Value;
using Map = QSettings::SettingsMap;

/// The first byte of an input that is one value rather than a file.
constexpr std::uint8_t valueMark = 1;

std::optional<Map> read(const QByteArray& bytes) {
    QBuffer buffer;
    buffer.setData(bytes);
    // A buffer of the device would be another 16 KiB for each input.
    buffer.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    Map values;
    return SettingsFormat::readLines(buffer, values) ? std::optional(values) : std::nullopt;
}

class MemoryDefaults final : public tavrin::UserDefaults {
public:
    [[nodiscard]] std::optional<Value> value(std::string_view key) const override {
        const auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }
    void set(std::string_view key, Value value) override {
        values_.insert_or_assign(std::string(key), std::move(value));
    }
    void remove(std::string_view key) override { values_.erase(std::string(key)); }
    [[nodiscard]] std::unique_ptr<tavrin::Interface> tryLock() override { return nullptr; }

private:
    std::map<std::string, Value, std::less<>> values_;
};

/// The agent must cope with any settings.
void checkProgress(const Map& values) {
    MemoryDefaults defaults;
    for (auto entry = values.begin(); entry != values.end(); ++entry) {
        defaults.set(
            entry.key().toStdString(),
            SettingsFormat::valueOf(entry.value().toString().toStdString()));
    }
    const tavrin::CollectionPreferences preferences(defaults);
    static_cast<void>(preferences.mode());
    static_cast<void>(preferences.scope());
    WatermarkStore store(defaults);
    if (store.returnBeforeContactsGap()) {
        check(!store.returnBeforeContactsGap());
    }
    constexpr std::int64_t highest = 1'000;
    static_cast<void>(store.claim({"account", "https://host", "/chat.db"}, highest));
    check(store.watermark() <= highest);
    // The same owner goes on.
    check(!store.claim({"account", "https://host", "/chat.db"}, highest));
}

void checkFile(const QByteArray& bytes) {
    if (const auto values = read(bytes)) {
        check(read(SettingsFormat::lines(*values)) == values);
        checkProgress(*values);
    }
}

/// A stored value must be read again.
void checkValue(Input& input) {
    Value value;
    switch (input.below(4)) {
    case 0:
        value = input.integer(8);
        break;
    case 1:
        value = input.below(2) == 1;
        break;
    case 2: {
        // The milliseconds of the years 1 to 9999.
        constexpr std::int64_t first = -62'135'596'800'000;
        constexpr std::int64_t count = 315'537'897'600'000;
        const auto number = static_cast<std::uint64_t>(input.integer(8));
        value = tavrin::Date(std::chrono::milliseconds(
            first + static_cast<std::int64_t>(number % static_cast<std::uint64_t>(count))));
        break;
    }
    default:
        value = tavrin::repairedUTF8(input.rest());
    }
    const std::string text = SettingsFormat::textOf(value);
    check(SettingsFormat::valueOf(text) == value);
    const QString key = QStringLiteral("key");
    const auto values = read(SettingsFormat::lines({{key, QString::fromStdString(text)}}));
    check(values && values->size() == 1);
    check(SettingsFormat::valueOf(values->value(key).toString().toStdString()) == value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    if (size > 0 && data[0] == valueMark) {
        input.byte();
        checkValue(input);
    } else {
        checkFile(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    }
    return 0;
}
