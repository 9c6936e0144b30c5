// The checksum of a transaction: CRC-32 as in IEEE 802.3 (reflected polynomial 0xEDB88320, initial value 0xFFFFFFFF,
// result inverted), by the fastest method that the processor has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quill::ipc {

[[nodiscard]] std::uint32_t crc32(std::span<const std::byte> bytes) noexcept;

}  // namespace quill::ipc
