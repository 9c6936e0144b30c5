// Variables of the environment in texts of the registry.
#pragma once

#include <string>
#include <string_view>

namespace platform::registry {

// The text with each "%NAME%" replaced by that variable's value; the name compares without case. What names no variable
// stays.
[[nodiscard]] std::u16string Expanded(std::u16string_view text);

}  // namespace platform::registry
