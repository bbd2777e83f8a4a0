// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

class AppModel;
class Prompt;

// The panel's cards. The model must outlive them.

[[nodiscard]] Prompt* makeFullDiskAccessPrompt(AppModel& model);

/// For missing access to the contacts. Its button asks for access: on Linux with
/// `ContactsQuestion`.
[[nodiscard]] Prompt* makeContactsPrompt(AppModel& model);

/// Shown after a sign-in without an account.
[[nodiscard]] Prompt* makeNoAccountPrompt(AppModel& model);

} // namespace orvel
