#include "platform/linux/utf8.h"

namespace platform::utf8 {

char32_t PointAt(std::string_view text, std::size_t& length) noexcept {
  const auto byte = [&](std::size_t at) { return static_cast<char32_t>(static_cast<unsigned char>(text[at])); };
  const char32_t first = byte(0);
  length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
  if (length == 0 || length > text.size()) return kNoPoint;
  if (length == 1) return first;
  char32_t point = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return kNoPoint;
    point = point << 6 | (byte(i) & 0x3F);
  }
  const bool tooLong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
  return tooLong || point > 0x10FFFF ? kNoPoint : point;
}

void Append(std::string& text, char32_t point) {
  const auto put = [&](char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (point < 0x80) return put(point);
  if (point < 0x800) {
    put(0xC0 | point >> 6);
  } else {
    if (point < 0x10000) {
      put(0xE0 | point >> 12);
    } else {
      put(0xF0 | point >> 18);
      put(0x80 | (point >> 12 & 0x3F));
    }
    put(0x80 | (point >> 6 & 0x3F));
  }
  put(0x80 | (point & 0x3F));
}

void Append(std::u16string& text, char32_t point) {
  if (point >= 0x10000) {
    text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    point = 0xDC00 + ((point - 0x10000) & 0x3FF);
  }
  text += static_cast<char16_t>(point);
}

}  // namespace platform::utf8
