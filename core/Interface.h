// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrin {

/// Base of abstract classes: cannot be copied, and can be deleted through a pointer to the base.
class Interface {
public:
    Interface(const Interface&) = delete;
    Interface& operator=(const Interface&) = delete;
    virtual ~Interface() = default;

protected:
    Interface() = default;
};

} // namespace tavrin
