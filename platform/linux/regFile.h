// Registry text, the format that administrators import and export ("Windows Registry Editor Version 5.00").
//
//   [HKEY_CURRENT_USER\Software\Name]     a key; "[-...]" deletes it with all below it
//   @="text"                              its default value
//   "name"=dword:0000002a                 and hex: for binary, hex(n): for type n, "name"=- to delete
//   ; a comment
//
// Reading takes what it can: a line that it cannot read, or whose key it cannot, is passed over. So is the last line
// when it has no line end and may have been cut: a number of fewer than eight digits, or any hex.
//
// Beyond the format: \r, \n and \0 in quoted text are a line break's units and NUL, and in a key's line an escape
// character (U+001B) stands ahead of "r", "n" and of itself. A text that is not plain (a NUL or a line break within, no
// NUL at its end, a lone surrogate) is written as hex(1):.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/hiveTree.h"

namespace platform::registry {

enum class HiveId : std::uint8_t { Machine, User };

// Merges what the text says about that hive into `root`. False when it says nothing about it.
bool ApplyRegText(std::string_view bytes, HiveId hive, Key& root);

// The hive as UTF-8 text, without a byte-order mark.
[[nodiscard]] std::string WriteRegText(HiveId hive, const Key& root);

}  // namespace platform::registry
