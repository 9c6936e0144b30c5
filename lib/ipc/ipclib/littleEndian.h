// Numbers as the wire has them: little-endian, at any address.
#pragma once

#include <concepts>
#include <cstddef>
#include <span>

namespace quill::ipc {

template <std::unsigned_integral Number>
[[nodiscard]] constexpr Number readLittleEndian(std::span<const std::byte, sizeof(Number)> bytes) noexcept {
  Number number = 0;
  for (std::size_t at = 0; at < sizeof(Number); ++at) {
    number = static_cast<Number>(number | static_cast<Number>(bytes[at]) << (8 * at));
  }
  return number;
}

template <std::unsigned_integral Number>
constexpr void writeLittleEndian(std::span<std::byte, sizeof(Number)> bytes, Number number) noexcept {
  for (std::size_t at = 0; at < sizeof(Number); ++at) bytes[at] = static_cast<std::byte>(number >> (8 * at));
}

}  // namespace quill::ipc
