// The checksum by the usual method, one byte at a time by a table of 256: what the library's own is held against.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ipcTests {

inline std::array<std::uint32_t, 256> CrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t entry = byte;
    for (int bit = 0; bit < 8; ++bit) entry = (entry & 1) != 0 ? entry >> 1 ^ 0xEDB88320 : entry >> 1;
    table[byte] = entry;
  }
  return table;
}

inline std::uint32_t TableCrcState(std::uint32_t state, std::span<const std::byte> bytes) {
  static const std::array<std::uint32_t, 256> table = CrcTable();
  for (const std::byte byte : bytes) state = state >> 8 ^ table[(state ^ static_cast<std::uint8_t>(byte)) & 0xFF];
  return state;
}

inline std::uint32_t TableCrc(std::span<const std::byte> bytes) { return ~TableCrcState(0xFFFFFFFF, bytes); }

}  // namespace ipcTests
