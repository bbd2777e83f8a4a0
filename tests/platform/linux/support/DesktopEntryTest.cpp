// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/DesktopEntry.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace orvel {

namespace {

/// The value as a desktop reads it.
std::string readValue(const std::string& written) {
    const KeyFile keys = parseDesktopEntry("[Desktop Entry]\nKey=" + written + "\n");
    if (!keys) {
        return "no desktop entry";
    }
    const std::unique_ptr<char, decltype(&g_free)> value(
        g_key_file_get_string(keys.get(), "Desktop Entry", "Key", nullptr), g_free);
    return value ? value.get() : "no value";
}

} // namespace

TEST(DesktopEntryTest, AValueIsReadUnchanged) {
    for (const std::string text :
         {"",
          "text",
          "a b",
          " before",
          "  twice",
          "after ",
          " ",
          "\tbefore",
          "a\nb\rc\td",
          R"(a\b\\n)",
          "\xC3\xA4#;="}) {
        EXPECT_EQ(readValue(desktopEntryValue(text)), text) << testing::PrintToString(text);
    }
}

TEST(DesktopEntryTest, AnyOtherTextIsNoEntry) {
    EXPECT_EQ(parseDesktopEntry("Exec=x\n"), nullptr);
    EXPECT_EQ(parseDesktopEntry("[Desktop Entry\nExec=x\n"), nullptr);
}

} // namespace orvel
