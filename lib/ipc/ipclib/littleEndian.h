// Numbers as the wire has them: little-endian, at any address.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <span>

namespace quill::ipc {

template <std::unsigned_integral Number>
[[nodiscard]] inline Number readLittleEndian(std::span<const std::byte, sizeof(Number)> bytes) noexcept {
  Number number;
  std::memcpy(&number, bytes.data(), sizeof number);
  return std::endian::native == std::endian::little ? number : std::byteswap(number);
}

template <std::unsigned_integral Number>
inline void writeLittleEndian(std::span<std::byte, sizeof(Number)> bytes, Number number) noexcept {
  if (std::endian::native != std::endian::little) number = std::byteswap(number);
  std::memcpy(bytes.data(), &number, sizeof number);
}

}  // namespace quill::ipc
