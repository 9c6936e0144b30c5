#include "tests/support/standInServiceText.h"

#include <charconv>
#include <cstdio>
#include <iterator>

#include "tests/support/machine.h"

namespace standIn {
namespace {

bool IsLeading(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsTrailing(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }
bool IsControl(char16_t unit) {
  return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x2028 || unit == 0x2029;
}

std::string Escape(char16_t unit) {
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(unit));
  return escape;
}

}  // namespace

void Lines::Print(const std::string& line) {
  const std::lock_guard guard(lock_);
  write_(line);
}

void Lines::Cease() { lock_.lock(); }

std::string Escaped(std::u16string_view text) {
  std::string escaped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    if (IsLeading(unit) && i + 1 < text.size() && IsTrailing(text[i + 1])) {
      escaped += support::Narrow(text.substr(i++, 2));
    } else if (IsLeading(unit) || IsTrailing(unit) || IsControl(unit)) {
      escaped += Escape(unit);
    } else if (unit == u'\\') {
      escaped += "\\\\";
    } else {
      escaped += support::Narrow(text.substr(i, 1));
    }
  }
  return escaped;
}

std::u16string FromLittleEndian(std::string_view bytes) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto low = static_cast<unsigned char>(bytes[i]);
    const auto high = static_cast<unsigned char>(bytes[i + 1]);
    text += static_cast<char16_t>(high << 8 | low);
  }
  return text;
}

std::string ToLittleEndian(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

std::string Hex(std::uint64_t number) {
  char digits[16];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number, 16).ptr;
  return "0x" + std::string(std::begin(digits), end);
}

std::string HexBytes(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4];
    text += kDigits[value & 15];
  }
  return text;
}

std::uint32_t Number32(std::string_view bytes, std::size_t offset) {
  std::uint32_t number = 0;
  for (std::size_t i = 4; i > 0; --i) number = number << 8 | static_cast<unsigned char>(bytes[offset + i - 1]);
  return number;
}

std::string Bytes32(std::uint32_t number) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xFF);
  return bytes;
}

}  // namespace standIn
