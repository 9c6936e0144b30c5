#include <array>
#include <span>
#include <utility>

#include "lib/ipc/ipclib/crc32Methods.h"
#include "lib/ipc/ipclib/littleEndian.h"

namespace quill::ipc::crc32Methods {
namespace {

constexpr std::size_t kSlices = 8;

using Table = std::array<std::uint32_t, 256>;

// Table k holds what becomes of a byte once k more bytes have gone by.
consteval std::array<Table, kSlices> MakeTables() {
  std::array<Table, kSlices> tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t state = byte;
    for (int bit = 0; bit < 8; ++bit) state = (state >> 1) ^ ((state & 1) != 0 ? kPolynomial : 0);
    tables[0][byte] = state;
  }
  for (std::size_t slice = 1; slice < kSlices; ++slice) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[slice - 1][byte];
      tables[slice][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}

constexpr std::array<Table, kSlices> kTables = MakeTables();

// Spelled out for every byte, for a loop of eight stays a loop.
template <std::size_t... Byte>
std::uint32_t Slice(std::uint64_t word, std::index_sequence<Byte...>) noexcept {
  return (kTables[kSlices - 1 - Byte][(word >> (8 * Byte)) & 0xFF] ^ ...);
}

}  // namespace

std::uint32_t bySlices(std::uint32_t state, std::span<const std::byte> bytes) noexcept {
  for (; bytes.size() >= kSlices; bytes = bytes.subspan(kSlices)) {
    const std::uint64_t word = readLittleEndian<std::uint64_t>(bytes.first<kSlices>());
    state = Slice(word ^ state, std::make_index_sequence<kSlices>());
  }
  for (const std::byte byte : bytes)
    state = (state >> 8) ^ kTables[0][(state ^ static_cast<std::uint32_t>(byte)) & 0xFF];
  return state;
}

}  // namespace quill::ipc::crc32Methods
