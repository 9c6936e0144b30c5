// UTF-8 and UTF-16, a code point at a time. Surrogates count as code points; what to do about them, and about bytes
// that are no UTF-8, is the callers' affair.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform::utf8 {

inline constexpr char32_t kNoPoint = 0xFFFFFFFF;

[[nodiscard]] constexpr bool IsHigh(char32_t unit) noexcept { return unit >= 0xD800 && unit < 0xDC00; }
[[nodiscard]] constexpr bool IsLow(char32_t unit) noexcept { return unit >= 0xDC00 && unit < 0xE000; }
[[nodiscard]] constexpr char32_t PointOf(char32_t high, char32_t low) noexcept {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

// The code point that the text begins with, and its bytes; kNoPoint when there is none in its shortest form. The text
// is not empty.
[[nodiscard]] char32_t PointAt(std::string_view text, std::size_t& length) noexcept;

void Append(std::string& text, char32_t point);
void Append(std::u16string& text, char32_t point);

}  // namespace platform::utf8
