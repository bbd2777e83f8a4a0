// SPDX-License-Identifier: Apache-2.0
#include "core/OutOfMemory.h"

namespace tavrin {

const char* OutOfMemory::what() const noexcept {
    return "There is not enough memory. Close other programs, then try again.";
}

void OutOfMemory::throwFromNew() {
    std::set_new_handler([] { throw OutOfMemory(); });
}

} // namespace tavrin
