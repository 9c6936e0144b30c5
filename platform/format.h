// The runtime library's printf family, with its own rules and with checked arguments.
//
//   Format(u"%s: err=0x%08x %S", wideText, number, narrowText)
//
// In a wide format "%s" is wide text and "%S" is narrow; in a narrow format it is the other way about. Known besides:
// d u x X with the sizes hh h l ll, c, p, %%, the flag 0, and a width. `l` is 32 bits, as on Windows. A conversion or
// argument that does not fit does not compile. Text ends at its first NUL.
//
// Between the widths the runtime's "C" locale holds: a byte becomes the unit of the same value; a unit above 0xFF has
// no byte, and then the formatting as a whole fails.
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/types.h"

namespace platform {
namespace formatting {

enum class ArgumentKind : std::uint8_t { Int8, Int16, Int32, Int64, Pointer, Narrow, Wide, Unknown };

// One argument, by value for numbers and by view for text.
struct Argument {
  ArgumentKind kind = ArgumentKind::Unknown;
  std::uint64_t number = 0;  // Sign-extended from signed types.
  std::string_view narrow;
  std::u16string_view wide;
};

template <class T>
consteval ArgumentKind KindOf() {
  using Value = std::remove_cvref_t<T>;
  if constexpr (std::convertible_to<const Value&, std::u16string_view>) return ArgumentKind::Wide;
  if constexpr (std::convertible_to<const Value&, std::string_view>) return ArgumentKind::Narrow;
  if constexpr (std::is_pointer_v<Value> || requires(Value handle) { handle.value(); }) return ArgumentKind::Pointer;
  if constexpr (std::integral<Value> && !std::same_as<Value, bool>) {
    switch (sizeof(Value)) {
      case 1: return ArgumentKind::Int8;
      case 2: return ArgumentKind::Int16;
      case 4: return ArgumentKind::Int32;
      case 8: return ArgumentKind::Int64;
      default: break;
    }
  }
  return ArgumentKind::Unknown;
}

template <class T>
Argument MakeArgument(const T& value) noexcept {
  constexpr ArgumentKind kind = KindOf<T>();
  Argument argument{.kind = kind, .number = 0, .narrow = {}, .wide = {}};
  if constexpr (kind == ArgumentKind::Wide) {
    argument.wide = value;
  } else if constexpr (kind == ArgumentKind::Narrow) {
    argument.narrow = value;
  } else if constexpr (kind == ArgumentKind::Pointer) {
    if constexpr (std::is_pointer_v<T>) {
      argument.number = reinterpret_cast<std::uintptr_t>(value);
    } else {
      argument.number = value.value();
    }
  } else {
    argument.number = static_cast<std::uint64_t>(value);
  }
  return argument;
}

// One conversion of a format: "%" flags width size letter.
struct Conversion {
  bool zeroPadded = false;
  unsigned width = 0;
  ArgumentKind integer = ArgumentKind::Int32;  // What the size letters say.
  char letter = 0;                             // 0 when malformed.
  std::size_t length = 0;                      // Units of the conversion, the percent sign included.
};

template <class Char>
constexpr Conversion ParseConversion(std::basic_string_view<Char> text) {
  Conversion conversion;
  std::size_t at = 1;
  const auto peek = [&] { return at < text.size() ? text[at] : Char{}; };
  const auto skip = [&](char unit) { return peek() == static_cast<Char>(unit) ? (++at, true) : false; };
  conversion.zeroPadded = skip('0');
  while (peek() >= '0' && peek() <= '9' && conversion.width < 1000) {
    conversion.width = conversion.width * 10 + static_cast<unsigned>(peek() - '0');
    ++at;
  }
  if (skip('h')) {
    conversion.integer = skip('h') ? ArgumentKind::Int8 : ArgumentKind::Int16;
  } else if (skip('l')) {
    conversion.integer = skip('l') ? ArgumentKind::Int64 : ArgumentKind::Int32;
  }
  for (const char letter : {'d', 'u', 'x', 'X', 'c', 'p', 's', 'S', '%'}) {
    if (skip(letter)) {
      conversion.letter = letter;
      break;
    }
  }
  conversion.length = at;
  return conversion;
}

template <class Char>
constexpr bool Accepts(const Conversion& conversion, ArgumentKind kind) {
  constexpr bool wideFormat = std::same_as<Char, char16_t>;
  switch (conversion.letter) {
    case 's': return kind == (wideFormat ? ArgumentKind::Wide : ArgumentKind::Narrow);
    case 'S': return kind == (wideFormat ? ArgumentKind::Narrow : ArgumentKind::Wide);
    case 'p': return kind == ArgumentKind::Pointer;
    case 'c': return kind == (wideFormat ? ArgumentKind::Int16 : ArgumentKind::Int8);
    // Smaller integers are promoted, as in any call with variable arguments; 64 bits must be asked for with "ll".
    default:
      return kind <= ArgumentKind::Int64 &&
             (kind == ArgumentKind::Int64) == (conversion.integer == ArgumentKind::Int64);
  }
}

template <class Char>
std::optional<std::basic_string<Char>> FormatArguments(std::basic_string_view<Char> format,
                                                       std::span<const Argument> arguments);
// As much of the result as the buffer holds, without a NUL; returns how long the whole of it is. Takes no memory.
std::optional<std::size_t> FormatInto(std::span<char> buffer, std::string_view format,
                                      std::span<const Argument> arguments) noexcept;
extern template std::optional<std::string> FormatArguments(std::string_view, std::span<const Argument>);
extern template std::optional<std::u16string> FormatArguments(std::u16string_view, std::span<const Argument>);

// A format text that has been checked against the types of its arguments, at compile time.
template <class Char, class... Arguments>
class CheckedFormat {
 public:
  consteval CheckedFormat(const Char* text) : text_(text) {
    const ArgumentKind kinds[] = {KindOf<Arguments>()..., ArgumentKind::Unknown};
    std::size_t next = 0;
    for (std::size_t at = text_.find(Char('%')); at != text_.npos; at = text_.find(Char('%'), at)) {
      const Conversion conversion = ParseConversion(text_.substr(at));
      if (conversion.letter == 0) throw "unknown conversion";
      if (conversion.letter != '%') {
        if (next == sizeof...(Arguments)) throw "more conversions than arguments";
        if (!Accepts<Char>(conversion, kinds[next++])) throw "argument does not fit its conversion";
      }
      at += conversion.length;
    }
    if (next != sizeof...(Arguments)) throw "more arguments than conversions";
  }
  [[nodiscard]] constexpr std::basic_string_view<Char> text() const noexcept { return text_; }

 private:
  std::basic_string_view<Char> text_;
};

}  // namespace formatting

template <class... Arguments>
using WideFormat = formatting::CheckedFormat<char16_t, std::type_identity_t<Arguments>...>;
template <class... Arguments>
using NarrowFormat = formatting::CheckedFormat<char, std::type_identity_t<Arguments>...>;

// The formatted text. A wide format never fails.
template <class... Arguments>
[[nodiscard]] std::u16string Format(WideFormat<Arguments...> format, const Arguments&... arguments) {
  const formatting::Argument list[] = {formatting::MakeArgument(arguments)..., formatting::Argument{}};
  return *formatting::FormatArguments<char16_t>(format.text(), std::span(list).first(sizeof...(Arguments)));
}

// The formatted text; nothing when wide text has a unit above 0xFF.
template <class... Arguments>
[[nodiscard]] std::optional<std::string> FormatNarrow(NarrowFormat<Arguments...> format,
                                                      const Arguments&... arguments) {
  const formatting::Argument list[] = {formatting::MakeArgument(arguments)..., formatting::Argument{}};
  return formatting::FormatArguments<char>(format.text(), std::span(list).first(sizeof...(Arguments)));
}

}  // namespace platform
