// The methods that crc32 chooses from, each with the same result. They carry a state from one piece of the bytes to the
// next: it begins as 0xFFFFFFFF, and its inverse is the checksum.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quill::ipc::crc32Methods {

inline constexpr std::uint32_t kPolynomial = 0xEDB88320;

using Method = std::uint32_t (*)(std::uint32_t state, std::span<const std::byte> bytes) noexcept;

// Eight bytes at a time, by eight tables. Runs on every processor.
[[nodiscard]] std::uint32_t bySlices(std::uint32_t state, std::span<const std::byte> bytes) noexcept;

// 64 bytes at a time, by carry-less multiplication. REQUIRES: foldingWorks().
[[nodiscard]] std::uint32_t byFolding(std::uint32_t state, std::span<const std::byte> bytes) noexcept;
[[nodiscard]] bool foldingWorks() noexcept;

}  // namespace quill::ipc::crc32Methods
