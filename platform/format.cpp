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

// Where a bounded result goes: what has no room is counted, and dropped.
class Bounded {
 public:
  explicit Bounded(std::span<char> buffer) noexcept : buffer_(buffer) {}
  void append(std::string_view text) noexcept {
    std::ranges::copy(text.substr(0, Room()), buffer_.begin() + static_cast<std::ptrdiff_t>(Kept()));
    length_ += text.size();
  }
  void append(const char* first, const char* last) noexcept { append(std::string_view(first, last)); }
  void append(std::size_t count, char unit) noexcept {
    std::ranges::fill(buffer_.subspan(Kept(), std::min(count, Room())), unit);
    length_ += count;
  }
  void operator+=(char unit) noexcept { append(1, unit); }
  [[nodiscard]] std::size_t length() const noexcept { return length_; }

 private:
  [[nodiscard]] std::size_t Kept() const noexcept { return std::min(length_, buffer_.size()); }
  [[nodiscard]] std::size_t Room() const noexcept { return buffer_.size() - Kept(); }

  std::span<char> buffer_;
  std::size_t length_ = 0;
};

template <class Char, class Result>
void AppendNumber(Result& result, const Conversion& conversion, std::uint64_t number) {
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
  if (!zeroPadded) result.append(padding, Char(' '));
  if (negative) result += Char('-');
  if (zeroPadded) result.append(padding, Char('0'));
  result.append(digits, end);  // Digits are ASCII, and so the same units in either width.
}

// Appends text of either width, up to its first NUL. False when a unit has no byte in a narrow result.
template <class Char, class Result, class Source>
bool AppendText(Result& result, std::basic_string_view<Source> text, std::size_t width) {
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

template <class Char, class Result>
bool AppendArgument(Result& result, const Conversion& conversion, const Argument& argument) {
  switch (argument.kind) {
    case ArgumentKind::Narrow: return AppendText<Char>(result, argument.narrow, conversion.width);
    case ArgumentKind::Wide: return AppendText<Char>(result, argument.wide, conversion.width);
    default: break;
  }
  if (conversion.letter == 'c') {
    result += static_cast<Char>(argument.number);
  } else {
    AppendNumber<Char>(result, conversion, argument.number);
  }
  return true;
}

// False when a wide argument has a unit that a narrow result has no byte for.
template <class Char, class Result>
bool AppendAll(Result& result, std::basic_string_view<Char> format, std::span<const Argument> arguments) {
  std::size_t next = 0;
  while (!format.empty()) {
    const std::size_t plain = std::min(format.find(Char('%')), format.size());
    result.append(format.substr(0, plain));
    format.remove_prefix(plain);
    if (format.empty()) break;
    const Conversion conversion = ParseConversion(format);
    if (conversion.letter == '%') {
      result += Char('%');
    } else if (!AppendArgument<Char>(result, conversion, arguments[next++])) {
      return false;
    }
    format.remove_prefix(conversion.length);
  }
  return true;
}

}  // namespace

template <class Char>
std::optional<std::basic_string<Char>> FormatArguments(std::basic_string_view<Char> format,
                                                       std::span<const Argument> arguments) {
  std::basic_string<Char> result;
  if (!AppendAll(result, format, arguments)) return std::nullopt;
  return result;
}

std::optional<std::size_t> FormatInto(std::span<char> buffer, std::string_view format,
                                      std::span<const Argument> arguments) noexcept {
  Bounded result(buffer);
  if (!AppendAll(result, format, arguments)) return std::nullopt;
  return result.length();
}

template std::optional<std::string> FormatArguments(std::string_view, std::span<const Argument>);
template std::optional<std::u16string> FormatArguments(std::u16string_view, std::span<const Argument>);

}  // namespace platform::formatting
