#include "platform/linux/regFileText.h"

namespace platform::registry {
namespace {

void Append(std::string& text, char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); }

bool IsPair(std::u16string_view units) {
  return units.size() > 1 && (units[0] & 0xFC00) == 0xD800 && (units[1] & 0xFC00) == 0xDC00;
}

// How much of a text, from its begin on, is ASCII: nearly every text is it all.
template <class Text>
std::size_t PlainLength(Text text) {
  std::size_t length = 0;
  while (length < text.size() && (text[length] & ~0x7F) == 0) ++length;
  return length;
}

// The code point that the text begins with, surrogates included, and its bytes. U+FFFD for one byte when it is none.
char32_t PointAt(std::string_view text, std::size_t& length) {
  const auto byte = [&](std::size_t at) { return static_cast<char32_t>(static_cast<unsigned char>(text[at])); };
  const char32_t first = byte(0);
  const std::size_t wanted = first < 0xC2 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 1;
  length = 1;
  if (first < 0x80) return first;
  if (wanted == 1 || wanted > text.size()) return 0xFFFD;
  char32_t point = first & (0x7FU >> wanted);
  for (std::size_t i = 1; i < wanted; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0xFFFD;
    point = point << 6 | (byte(i) & 0x3F);
  }
  if ((wanted == 3 && point < 0x800) || (wanted == 4 && (point < 0x10000 || point > 0x10FFFF))) return 0xFFFD;
  length = wanted;
  return point;
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
    if (IsPair(units)) {
      point = 0x10000 + ((point - 0xD800) << 10) + (static_cast<char32_t>(units[1]) - 0xDC00);
      units.remove_prefix(1);
    }
    units.remove_prefix(1);
    if (point < 0x80) {
      Append(text, point);
      continue;
    }
    if (point < 0x800) {
      Append(text, 0xC0 | point >> 6);
    } else {
      Append(text, point < 0x10000 ? 0xE0 | point >> 12 : 0xF0 | point >> 18);
      if (point >= 0x10000) Append(text, 0x80 | (point >> 12 & 0x3F));
      Append(text, 0x80 | (point >> 6 & 0x3F));
    }
    Append(text, 0x80 | (point & 0x3F));
  }
}

std::u16string FromUtf8(std::string_view text) {
  const std::size_t plain = PlainLength(text);
  std::u16string units(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(plain));
  units.reserve(text.size());
  text.remove_prefix(plain);
  while (!text.empty()) {
    std::size_t length = 0;
    const char32_t point = PointAt(text, length);
    text.remove_prefix(length);
    if (point >= 0x10000) {
      units += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    } else {
      units += static_cast<char16_t>(point);
    }
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
