#include "platform/linux/regFileText.h"

#include "platform/linux/utf8.h"

namespace platform::registry {
namespace {

// How much of a text, from its begin on, is ASCII: nearly every text is it all.
template <class Text>
std::size_t PlainLength(Text text) {
  std::size_t length = 0;
  while (length < text.size() && (text[length] & ~0x7F) == 0) ++length;
  return length;
}

std::u16string UnitsOf(std::string_view littleEndian) {
  std::u16string units;
  units.reserve(littleEndian.size() / 2);
  for (std::size_t i = 0; i + 1 < littleEndian.size(); i += 2) {
    units += static_cast<char16_t>(static_cast<unsigned char>(littleEndian[i]) |
                                   static_cast<unsigned char>(littleEndian[i + 1]) << 8);
  }
  return units;
}

}  // namespace

void AppendUtf8(std::string& text, std::u16string_view units) {
  const std::size_t plain = PlainLength(units);
  text.append(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(plain));
  units.remove_prefix(plain);
  while (!units.empty()) {
    char32_t point = units[0];
    if (units.size() > 1 && utf8::IsHigh(point) && utf8::IsLow(units[1])) {
      point = utf8::PointOf(point, units[1]);
      units.remove_prefix(1);
    }
    units.remove_prefix(1);
    utf8::Append(text, point);
  }
}

std::u16string FromUtf8(std::string_view text) {
  const std::size_t plain = PlainLength(text);
  std::u16string units(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(plain));
  units.reserve(text.size());
  text.remove_prefix(plain);
  while (!text.empty()) {
    std::size_t length = 0;
    const char32_t point = utf8::PointAt(text, length);
    const bool known = point != utf8::kNoPoint;
    utf8::Append(units, known ? point : 0xFFFD);
    text.remove_prefix(known ? length : 1);
  }
  return units;
}

std::string_view TextOfFile(std::string_view bytes, std::string& storage) {
  if (bytes.starts_with("\xEF\xBB\xBF")) return bytes.substr(3);
  if (!bytes.starts_with("\xFF\xFE")) return bytes;
  storage.reserve(bytes.size() / 2);
  AppendUtf8(storage, UnitsOf(bytes.substr(2)));
  return storage;
}

}  // namespace platform::registry
