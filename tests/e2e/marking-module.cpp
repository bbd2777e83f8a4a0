// SPDX-License-Identifier: Apache-2.0
//
// A library that shows that it was loaded: it writes the file that "MARKING_MODULE_MARK" names.
#include <cstdlib>
#include <fstream>

namespace {

[[gnu::constructor]] void mark() {
    if (const char* file = std::getenv("MARKING_MODULE_MARK"); file != nullptr) {
        std::ofstream(file) << "loaded";
    }
}

} // namespace
