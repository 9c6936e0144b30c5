// The two conversions of machine.h. Every host text comes back as it was: where its bytes, taken as UTF-8, would turn
// into units that stand for other bytes too, each byte is kept as a unit of its own.
#include "platform/linux/machine.h"

namespace platform::machine {
namespace {

constexpr char32_t kNoPoint = 0xFFFFFFFF;

bool IsHigh(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLow(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }
// A unit that stands for one byte of no UTF-8.
bool IsByte(char32_t unit) { return unit >= 0xDC80 && unit < 0xDD00; }

void Append(std::string& text, char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); }

void AppendPoint(std::string& text, char32_t point) {
  if (point < 0x80) return Append(text, point);
  if (point < 0x800) {
    Append(text, 0xC0 | point >> 6);
  } else {
    if (point < 0x10000) {
      Append(text, 0xE0 | point >> 12);
    } else {
      Append(text, 0xF0 | point >> 18);
      Append(text, 0x80 | (point >> 12 & 0x3F));
    }
    Append(text, 0x80 | (point >> 6 & 0x3F));
  }
  Append(text, 0x80 | (point & 0x3F));
}

// The code point that the text begins with (surrogates count), and its bytes; kNoPoint when it is no shortest form.
char32_t PointAt(std::string_view text, std::size_t& length) {
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

// Whether the unit behind a lone high surrogate would make a pair of the two.
bool LowFollows(std::string_view text) {
  if (text.empty()) return false;
  std::size_t length = 0;
  const char32_t point = PointAt(text, length);
  return point == kNoPoint || IsLow(point);
}

}  // namespace

std::string ToHost(std::u16string_view text) {
  std::string host;
  host.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char32_t unit = text[i];
    if (IsHigh(unit) && i + 1 < text.size() && IsLow(text[i + 1])) {
      AppendPoint(host, 0x10000 + ((unit - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00));
    } else if (IsByte(unit)) {
      Append(host, unit - 0xDC00);
    } else {
      AppendPoint(host, unit);
    }
  }
  return host;
}

std::u16string FromHost(std::string_view text) {
  std::u16string wide;
  wide.reserve(text.size());
  while (!text.empty()) {
    std::size_t length = 0;
    const char32_t point = PointAt(text, length);
    if (point == kNoPoint || IsByte(point) || (IsHigh(point) && LowFollows(text.substr(length)))) {
      const char32_t byte = static_cast<unsigned char>(text[0]);
      wide += static_cast<char16_t>(0xDC00 + byte);
      length = 1;
    } else if (point >= 0x10000) {
      wide += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
      wide += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    } else {
      wide += static_cast<char16_t>(point);
    }
    text.remove_prefix(length);
  }
  return wide;
}

}  // namespace platform::machine
