// Bounded formatting: text is cut where it has no room, never refused, and always ends with a NUL.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "platform/format.h"

namespace runtime {

// Returns the length of what is in the buffer, which is at most `capacity` - 1. A text that cannot be formatted (wide
// text that has no bytes) gives an empty buffer. Nothing is written to a buffer without capacity.
int SafeVFormat(char* buffer, int capacity, std::string_view format,
                std::span<const platform::formatting::Argument> arguments) noexcept;

template <class... Arguments>
int SafeFormat(char* buffer, int capacity, platform::NarrowFormat<Arguments...> format,
               const Arguments&... arguments) noexcept {
  const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
  return SafeVFormat(buffer, capacity, format.text(), std::span(list).first(sizeof...(Arguments)));
}

// Keeps at most 10,239 characters.
template <class... Arguments>
[[nodiscard]] std::string Format(platform::NarrowFormat<Arguments...> format, const Arguments&... arguments) {
  std::array<char, 10240> buffer;
  const int length = SafeFormat<Arguments...>(buffer.data(), static_cast<int>(buffer.size()), format, arguments...);
  return std::string(buffer.data(), static_cast<std::size_t>(length));
}

// What stands behind the last slash or backslash; all of it when there is none.
[[nodiscard]] std::string_view BaseName(std::string_view path) noexcept;

// "250ms", "1.500s", "0:01:01", "2 days", "1 day 0:00:00.500". Decimals are cut off, not rounded; without any the
// seconds are rounded. At most 32 decimals.
[[nodiscard]] std::string FormatDuration(double seconds, int decimals);

}  // namespace runtime
