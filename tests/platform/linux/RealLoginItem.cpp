// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealLoginItem.h"

#include "platform/linux/desktop/AutostartLoginItem.h"

namespace orvel::test {

std::unique_ptr<LoginItem> makeRealLoginItem(const std::filesystem::path& folder) {
    return std::make_unique<AutostartLoginItem>(AutostartLoginItem::Options{
        folder / "config/autostart", "app.test", "Test Agent", "/usr/bin/true"});
}

} // namespace orvel::test
