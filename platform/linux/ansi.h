// The machine's ANSI code page, 1252.
#pragma once

#include <string>
#include <string_view>

namespace platform::ansi {

// Each unit becomes one byte; a unit that the code page does not have becomes "?", a surrogate pair two of them.
[[nodiscard]] std::string FromWide(std::u16string_view text);
[[nodiscard]] std::u16string ToWide(std::string_view text);

}  // namespace platform::ansi
