// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// The user defaults keys that all systems share.
namespace tavrin::UserDefaultsKeys {

// The user's choices.
inline constexpr std::string_view modeKey = "collection.mode";
inline constexpr std::string_view scopeKey = "collection.scope";
inline constexpr std::string_view startAtLoginKey = "startAtLogin";

// The progress of the collection.
inline constexpr std::string_view highKey = "messages.rowid.watermark";
inline constexpr std::string_view backfillKey = "messages.backfill.cursor";
inline constexpr std::string_view backfillDoneKey = "messages.backfill.done";
/// As JSON: whose messages the progress counts.
inline constexpr std::string_view ownerKey = "messages.progress.owner";
/// The progress before the first scan that could not read the address book.
inline constexpr std::string_view beforeContactsGapKey = "messages.progress.beforeContactsGap";
/// The folder of the private copies of the last scan.
inline constexpr std::string_view copiesFolderKey = "messages.copies.folder";
inline constexpr std::string_view last24hKey = "messages.last24h.count";
inline constexpr std::string_view last24hAtKey = "messages.last24h.at";

} // namespace tavrin::UserDefaultsKeys
