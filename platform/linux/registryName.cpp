#include "platform/linux/registryName.h"

#include <algorithm>

namespace platform::registry {
namespace {

// Lower-case units from `first` to `last`, every `step`-th; the capital lies `distance` ahead.
struct Letters {
  char16_t first;
  char16_t last;
  char16_t step;
  char16_t distance;
};

constexpr Letters kLetters[] = {
    {0x0061, 0x007A, 1, 32}, {0x00E0, 0x00F6, 1, 32}, {0x00F8, 0x00FE, 1, 32}, {0x0101, 0x012F, 2, 1},
    {0x0133, 0x0137, 2, 1},  {0x013A, 0x0148, 2, 1},  {0x014B, 0x0177, 2, 1},  {0x017A, 0x017E, 2, 1},
    {0x01CE, 0x01DC, 2, 1},  {0x01DF, 0x01EF, 2, 1},  {0x01F9, 0x021F, 2, 1},  {0x0223, 0x0233, 2, 1},
    {0x0247, 0x024F, 2, 1},  {0x03AC, 0x03AC, 1, 38}, {0x03AD, 0x03AF, 1, 37}, {0x03B1, 0x03C1, 1, 32},
    {0x03C3, 0x03CB, 1, 32}, {0x03CC, 0x03CC, 1, 64}, {0x03CD, 0x03CE, 1, 63}, {0x03D9, 0x03EF, 2, 1},
    {0x0430, 0x044F, 1, 32}, {0x0450, 0x045F, 1, 80}, {0x0461, 0x0481, 2, 1},  {0x048B, 0x04BF, 2, 1},
    {0x04C2, 0x04CE, 2, 1},  {0x04CF, 0x04CF, 1, 15}, {0x04D1, 0x052F, 2, 1},  {0x0561, 0x0586, 1, 48},
    {0x1E01, 0x1E95, 2, 1},  {0x1EA1, 0x1EFF, 2, 1},  {0x24D0, 0x24E9, 1, 26}, {0xFF41, 0xFF5A, 1, 32},
};

char16_t UpcaseLetter(char16_t unit) noexcept {
  if (unit == 0x00FF) return 0x0178;
  const auto* const letters = std::lower_bound(std::begin(kLetters), std::end(kLetters), unit,
                                               [](const Letters& range, char16_t at) { return range.last < at; });
  if (letters == std::end(kLetters) || unit < letters->first || (unit - letters->first) % letters->step != 0)
    return unit;
  return static_cast<char16_t>(unit - letters->distance);
}

}  // namespace

char16_t Upcase(char16_t unit) noexcept {
  if (unit >= 0x80) return UpcaseLetter(unit);
  return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
}

bool SameName(std::u16string_view a, std::u16string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char16_t x, char16_t y) { return x == y || Upcase(x) == Upcase(y); });
}

bool NameLess::operator()(std::u16string_view a, std::u16string_view b) const noexcept {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (a[i] == b[i]) continue;
    const char16_t x = Upcase(a[i]);
    const char16_t y = Upcase(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

std::u16string_view TakeName(std::u16string_view& path) noexcept {
  while (path.starts_with(u'\\')) path.remove_prefix(1);
  const std::u16string_view name = path.substr(0, path.find(u'\\'));
  path.remove_prefix(name.size());
  while (path.starts_with(u'\\')) path.remove_prefix(1);
  return name;
}

}  // namespace platform::registry
