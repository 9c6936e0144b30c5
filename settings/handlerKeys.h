// The keys of a URL scheme's registration, and the command that stands in them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace settings {

// "Software\Classes\<scheme>", and the key of its command below it.
[[nodiscard]] std::u16string SchemeKeyPath(std::u16string_view scheme);
[[nodiscard]] std::u16string CommandKeyPath(std::u16string_view scheme);

// The command of an open command key: its default value, a text of up to 16383 bytes.
[[nodiscard]] std::optional<std::u16string> ReadCommand(platform::HKEY commandKey);
// The same for a scheme; nothing as well when it has no command key.
[[nodiscard]] std::optional<std::u16string> ReadCommandOf(platform::HKEY hive, std::u16string_view scheme);

// Whether the command is this program's, wherever it is installed.
[[nodiscard]] bool IsOwnCommand(std::u16string_view command);

}  // namespace settings
