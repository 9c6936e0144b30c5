#include "platform/format.h"

#include <algorithm>
#include <charconv>

namespace platform::formatting {
namespace {

std::int64_t SignedOfSize(std::uint64_t number, ArgumentKind integer) {
  switch (integer) {
    case ArgumentKind::Int8: return static_cast<std::int8_t>(number);
    case ArgumentKind::Int16: return static_cast<std::int16_t>(number);
    case ArgumentKind::Int32: return static_cast<std::int32_t>(number);
    default: return static_cast<std::int64_t>(number);
  }
}

std::uint64_t UnsignedOfSize(std::uint64_t number, ArgumentKind integer) {
  switch (integer) {
    case ArgumentKind::Int8: return static_cast<std::uint8_t>(number);
    case ArgumentKind::Int16: return static_cast<std::uint16_t>(number);
    case ArgumentKind::Int32: return static_cast<std::uint32_t>(number);
    default: return number;
  }
}

// Digits with padding, into a narrow scratch text that fits both widths: digits are ASCII.
std::string FormatNumber(const Conversion& conversion, std::uint64_t number) {
  char digits[24];
  char* end = digits;
  bool negative = false;
  if (conversion.letter == 'd') {
    const std::int64_t value = SignedOfSize(number, conversion.integer);
    negative = value < 0;
    const auto magnitude = static_cast<std::uint64_t>(value);
    end = std::to_chars(digits, std::end(digits), negative ? 0 - magnitude : magnitude).ptr;
  } else {
    const int base = conversion.letter == 'u' ? 10 : 16;
    const ArgumentKind integer = conversion.letter == 'p' ? ArgumentKind::Int64 : conversion.integer;
    end = std::to_chars(digits, std::end(digits), UnsignedOfSize(number, integer), base).ptr;
  }
  if (conversion.letter == 'X' || conversion.letter == 'p') {
    std::transform(digits, end, digits, [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
  }
  const auto length = static_cast<std::size_t>(end - digits);
  std::size_t width = conversion.width;
  bool zeroPadded = conversion.zeroPadded;
  if (conversion.letter == 'p') {  // The runtime prints a pointer with all its digits, and no "0x".
    width = std::max<std::size_t>(width, 2 * sizeof(void*));
    zeroPadded = true;
  }
  const std::size_t used = length + (negative ? 1 : 0);
  const std::size_t padding = width > used ? width - used : 0;
  std::string text;
  if (!zeroPadded) text.append(padding, ' ');
  if (negative) text += '-';
  if (zeroPadded) text.append(padding, '0');
  return text.append(digits, length);
}

// Appends text of either width, up to its first NUL. False when a unit has no byte in a narrow result.
template <class Char, class Source>
bool AppendText(std::basic_string<Char>& result, std::basic_string_view<Source> text, std::size_t width) {
  text = text.substr(0, text.find(Source{}));
  if (width > text.size()) result.append(width - text.size(), Char(' '));
  if constexpr (std::same_as<Char, Source>) {
    result.append(text);
  } else {
    for (const Source unit : text) {
      if constexpr (sizeof(Source) > sizeof(Char)) {
        if (unit > 0xFF) return false;
        result += static_cast<Char>(unit);
      } else {
        result += static_cast<Char>(static_cast<unsigned char>(unit));
      }
    }
  }
  return true;
}

template <class Char>
bool AppendArgument(std::basic_string<Char>& result, const Conversion& conversion, const Argument& argument) {
  switch (argument.kind) {
    case ArgumentKind::Narrow: return AppendText(result, argument.narrow, conversion.width);
    case ArgumentKind::Wide: return AppendText(result, argument.wide, conversion.width);
    default: break;
  }
  if (conversion.letter == 'c') {
    result += static_cast<Char>(argument.number);
    return true;
  }
  return AppendText(result, std::string_view(FormatNumber(conversion, argument.number)), 0);
}

}  // namespace

template <class Char>
std::optional<std::basic_string<Char>> FormatArguments(std::basic_string_view<Char> format,
                                                       std::span<const Argument> arguments) {
  std::basic_string<Char> result;
  std::size_t next = 0;
  while (!format.empty()) {
    const std::size_t plain = std::min(format.find(Char('%')), format.size());
    result.append(format.substr(0, plain));
    format.remove_prefix(plain);
    if (format.empty()) break;
    const Conversion conversion = ParseConversion(format);
    if (conversion.letter == '%') {
      result += Char('%');
    } else if (!AppendArgument(result, conversion, arguments[next++])) {
      return std::nullopt;
    }
    format.remove_prefix(conversion.length);
  }
  return result;
}

template std::optional<std::string> FormatArguments(std::string_view, std::span<const Argument>);
template std::optional<std::u16string> FormatArguments(std::u16string_view, std::span<const Argument>);

}  // namespace platform::formatting
