// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Tells screen readers what the windows and the widgets of ours are, where Qt would only know that
/// they are widgets. For all that are made from then on; once, after the application is made.
void installAccessibility();

} // namespace orvel
