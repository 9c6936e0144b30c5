// The two conversions of machine.h. Every host text comes back as it was: where its bytes, taken as UTF-8, would turn
// into units that stand for other bytes too, each byte is kept as a unit of its own.
#include "platform/linux/machine.h"

#include "platform/linux/utf8.h"

namespace platform::machine {
namespace {

using utf8::IsHigh;
using utf8::IsLow;

// A unit that stands for one byte of no UTF-8.
bool IsByte(char32_t unit) { return unit >= 0xDC80 && unit < 0xDD00; }

// Whether the unit behind a lone high surrogate would make a pair of the two.
bool LowFollows(std::string_view text) {
  if (text.empty()) return false;
  std::size_t length = 0;
  const char32_t point = utf8::PointAt(text, length);
  return point == utf8::kNoPoint || IsLow(point);
}

}  // namespace

std::string ToHost(std::u16string_view text) {
  std::string host;
  host.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char32_t unit = text[i];
    if (IsHigh(unit) && i + 1 < text.size() && IsLow(text[i + 1])) {
      utf8::Append(host, utf8::PointOf(unit, text[++i]));
    } else if (IsByte(unit)) {
      host += static_cast<char>(static_cast<unsigned char>(unit - 0xDC00));
    } else {
      utf8::Append(host, unit);
    }
  }
  return host;
}

std::u16string FromHost(std::string_view text) {
  std::u16string wide;
  wide.reserve(text.size());
  while (!text.empty()) {
    std::size_t length = 0;
    const char32_t point = utf8::PointAt(text, length);
    if (point == utf8::kNoPoint || IsByte(point) || (IsHigh(point) && LowFollows(text.substr(length)))) {
      const char32_t byte = static_cast<unsigned char>(text[0]);
      wide += static_cast<char16_t>(0xDC00 + byte);
      length = 1;
    } else {
      utf8::Append(wide, point);
    }
    text.remove_prefix(length);
  }
  return wide;
}

}  // namespace platform::machine
