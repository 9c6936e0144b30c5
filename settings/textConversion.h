// Conversions between wide text and UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace settings {

// A lone surrogate, or malformed UTF-8, becomes U+FFFD. An empty input and a failed conversion are traced and give the
// empty text.
[[nodiscard]] std::string WStringToString(std::u16string_view text);
[[nodiscard]] std::u16string StringToWString(std::string_view text);

}  // namespace settings
