// The records that two processes exchange. Little-endian, packed without padding, at any address: they are copied out
// of the bytes and into them, never laid over them.
//
//   transaction   header (28 bytes), then its blocks back to back
//   block         header (36 bytes, 40 for the first block of a message), then its data
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quill::ipc {

enum class LmIpclibMsgType : std::uint32_t {
  None = 0,
  Open = 1,
  OpenAck = 2,
  Close = 3,
  CloseAck = 4,
  Shutdown = 5,
  Msg = 6
};

// "unknown" for a number that is no type.
[[nodiscard]] std::string_view NameOf(LmIpclibMsgType type) noexcept;

// Bits of a block's flags. The high half carries the high half of the message's own flags.
inline constexpr std::uint32_t kFirstBlock = 1;
inline constexpr std::uint32_t kLastBlock = 2;
inline constexpr std::uint32_t kFlagsOnTheWire = 0xFFFF0000;

// destStreamId of whatever is meant for the control stream of the receiving link.
inline constexpr std::uint64_t kControlStreamId = 0;

struct LmIpclibTrxHeader {
  static constexpr std::uint32_t kSize = 28;
  static constexpr std::uint32_t kCrc32Offset = 4;

  std::uint32_t reserved0 = 0;
  std::uint32_t crc32 = 0;     // Of all trxSize bytes, with this field taken as 0.
  std::uint64_t trxSeqNo = 0;  // 1 for the first of a link's direction, then one more for each.
  std::uint32_t reserved1 = 0;
  std::uint32_t trxSize = 0;   // Bytes, with this header.
  std::uint32_t msgCount = 0;  // Blocks.
};

struct LmIpclibBlockHeader {
  static constexpr std::uint32_t kSize = 36;
  static constexpr std::uint32_t kFirstSize = 40;

  LmIpclibMsgType msgType = LmIpclibMsgType::None;
  std::uint32_t flags = 0;
  std::uint32_t status = 0;  // An LmIpcStatusCode.
  std::uint64_t srcStreamId = 0;
  std::uint64_t destStreamId = 0;
  std::uint32_t blockSize = 0;  // Bytes, with this header.
  std::uint32_t dataSize = 0;   // Bytes.
  std::uint32_t totalSize = 0;  // Bytes of the whole message. In a first block alone.

  [[nodiscard]] std::uint32_t headerSize() const noexcept { return (flags & kFirstBlock) != 0 ? kFirstSize : kSize; }
};

// The record at the beginning of the bytes; nothing when they are too few.
[[nodiscard]] std::optional<LmIpclibTrxHeader> readTrxHeader(std::span<const std::byte> bytes) noexcept;
[[nodiscard]] std::optional<LmIpclibBlockHeader> readBlockHeader(std::span<const std::byte> bytes) noexcept;

// REQUIRES: room for kSize, and for headerSize().
void writeTrxHeader(std::span<std::byte> bytes, const LmIpclibTrxHeader& header) noexcept;
void writeBlockHeader(std::span<std::byte> bytes, const LmIpclibBlockHeader& header) noexcept;

// Open to Msg.
[[nodiscard]] bool isSent(LmIpclibMsgType type) noexcept;

// Whether a block of a type that is sent agrees with itself: sizes, flags and the address that its type asks for.
[[nodiscard]] bool isWellFramed(const LmIpclibBlockHeader& header) noexcept;

// The payload of an Open is a stream name: its length in bytes (32 bits), then its UTF-16 units. It is none when it is
// shorter than five bytes or than the length says, or the length is below 2. What lies behind the name, or is half a
// unit of it, is ignored. The question takes no memory.
[[nodiscard]] bool isOpenPayload(std::span<const std::byte> payload) noexcept;
[[nodiscard]] std::optional<std::u16string> readOpenPayload(std::span<const std::byte> payload);
[[nodiscard]] std::string writeOpenPayload(std::u16string_view name);

}  // namespace quill::ipc
