#include "platform/linux/ansi.h"

#include <algorithm>
#include <array>

namespace platform::ansi {
namespace {

// The units of the bytes 0x80 to 0x9F; every other byte is its own unit.
constexpr std::array<char16_t, 32> kMiddle = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                              0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                              0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                              0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
constexpr unsigned kFirst = 0x80;

char ByteOf(char16_t unit) {
  if (const auto found = std::ranges::find(kMiddle, unit); found != kMiddle.end()) {
    return static_cast<char>(static_cast<unsigned char>(kFirst + static_cast<unsigned>(found - kMiddle.begin())));
  }
  const bool own = unit < kFirst || (unit >= kFirst + kMiddle.size() && unit <= 0xFF);
  return own ? static_cast<char>(static_cast<unsigned char>(unit)) : '?';
}

char16_t UnitOf(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value >= kFirst && value < kFirst + kMiddle.size() ? kMiddle[value - kFirst] : value;
}

}  // namespace

std::string FromWide(std::u16string_view text) {
  std::string bytes(text.size(), '\0');
  std::ranges::transform(text, bytes.begin(), ByteOf);
  return bytes;
}

std::u16string ToWide(std::string_view text) {
  std::u16string units(text.size(), u'\0');
  std::ranges::transform(text, units.begin(), UnitOf);
  return units;
}

}  // namespace platform::ansi
