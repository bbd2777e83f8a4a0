// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/DesktopEntry.h"

#include "core/Text.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <glib.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace orvel;

namespace {

constexpr const char* group = "Desktop Entry";

/// The first bytes of inputs that are a value or the name of a program, rather than a file.
constexpr std::uint8_t valueMark = 1;
constexpr std::uint8_t programMark = 2;

std::optional<std::string> stringAt(_GKeyFile* keys, const char* key) {
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_key_file_get_string(keys, group, key, nullptr), g_free);
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

/// The value as a desktop reads it.
std::string readValue(const std::string& written) {
    const KeyFile keys = parseDesktopEntry("[Desktop Entry]\nKey=" + written + "\n");
    check(keys != nullptr);
    const auto value = stringAt(keys.get(), "Key");
    check(value.has_value());
    return *value;
}

/// The arguments of a command, as a shell splits it.
std::vector<std::string> arguments(const std::string& command) {
    int count = 0;
    char** values = nullptr;
    check(g_shell_parse_argv(command.c_str(), &count, &values, nullptr) != FALSE);
    std::vector<std::string> result(values, values + count);
    g_strfreev(values);
    return result;
}

std::string withoutPercentEscapes(const std::string& text) {
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index) {
        result += text[index];
        if (text[index] == '%') {
            check(index + 1 < text.size() && text[++index] == '%');
        }
    }
    return result;
}

void checkProgram(const std::string& program) {
    if (program.empty()) {
        return;
    }
    const std::vector<std::string> command = arguments(readValue(desktopEntryCommand(program)));
    check(!command.empty() && withoutPercentEscapes(command.back()) == program);
    if (command.size() > 1) {
        check(command.size() == 4 && command[0] == "/bin/sh" && command[1] == "-c");
        check(command[2] == R"(exec "$0" "$@")");
    }
}

void checkFile(std::string_view text) {
    if (const KeyFile keys = parseDesktopEntry(text)) {
        for (const char* key : {"Exec", "Hidden", "X-GNOME-Autostart-enabled"}) {
            if (const auto value = stringAt(keys.get(), key)) {
                check(tavrin::isValidUTF8(*value));
                check(readValue(desktopEntryValue(*value)) == *value);
            }
        }
    }
}

/// As of a path: well-formed and without NUL.
std::string textOf(std::string_view bytes) {
    std::string text = tavrin::repairedUTF8(bytes);
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
    // Readers skip all white space before a value, but the format can escape only some.
    text.erase(0, text.find_first_not_of("\v\f"));
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    if (size > 0 && data[0] == valueMark) {
        input.byte();
        const std::string text = textOf(input.rest());
        check(readValue(desktopEntryValue(text)) == text);
    } else if (size > 0 && data[0] == programMark) {
        input.byte();
        checkProgram(textOf(input.rest()));
    } else {
        checkFile(input.rest());
    }
    return 0;
}
