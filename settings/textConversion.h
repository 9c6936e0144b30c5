// Conversions between wide text and UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace settings {

// A lone surrogate, or malformed UTF-8, becomes U+FFFD. An empty input and a failed conversion give the empty text.
// They are traced, but for a failure to find out the size alone.
[[nodiscard]] std::string WStringToString(std::u16string_view text);
[[nodiscard]] std::u16string StringToWString(std::string_view text);

}  // namespace settings
