// What travels between windows: a message in one packet, and the answer to it in another.
//
// A packet is a head, and behind it the data of WM_COPYDATA when it is small. Larger data lies in a sealed memory file
// whose descriptor comes with the packet. Whatever a peer writes, taking a packet in neither waits, nor reads more than
// it was sent, nor leaves a descriptor open.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/linux/descriptor.h"
#include "platform/types.h"
#include "platform/window.h"

namespace platform::windowPacket {

// The most data that a message carries.
inline constexpr std::uint32_t kLargestData = 64 * 1024 * 1024;
// Data above this size goes into a memory file.
inline constexpr std::uint32_t kLargestInline = 16 * 1024;

enum class Kind : std::uint32_t { Sent = 1, Posted = 2 };
enum class Carriage : std::uint32_t { Nothing = 0, NoData = 1, Inline = 2, MemoryFile = 3 };

struct Head {
  std::uint32_t magic;
  Kind kind;
  std::uint32_t message;
  Carriage carriage;  // Other than Nothing exactly for WM_COPYDATA, which is never posted.
  std::uint64_t wParam;
  std::uint64_t lParam;  // With WM_COPYDATA the structure's dwData.
  std::uint64_t size;    // Bytes of data.
};
static_assert(sizeof(Head) == 40);
inline constexpr std::uint32_t kRequestMagic = 0x314D574C;

struct Answer {
  std::uint32_t magic;
  std::uint32_t reserved;
  std::int64_t result;
};
static_assert(sizeof(Answer) == 16);
inline constexpr std::uint32_t kAnswerMagic = 0x3141574C;

// A message that was taken in. `data` is set exactly when the sender's was, also for 0 bytes; the block has no byte
// more than was sent.
struct Request {
  Kind kind = Kind::Sent;
  UINT message = 0;
  WPARAM wParam = 0;
  LPARAM lParam = 0;
  DWORD size = 0;
  std::unique_ptr<BYTE[]> data;
};

// Writes a message; lParam of WM_COPYDATA is the structure's address. False, with the last error set, on failure.
bool Write(const Descriptor& connection, Kind kind, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

enum class Arrival : std::uint8_t { NotYet, Whole, Broken };
// Takes a message in, when it is there. Does not wait. A message that there is no memory for is Broken as well.
[[nodiscard]] Arrival Read(const Descriptor& connection, Request& request) noexcept;

void WriteAnswer(const Descriptor& connection, LRESULT result) noexcept;
// The answer; nothing when what came is none, or the other end has closed. Does not wait.
[[nodiscard]] std::optional<LRESULT> ReadAnswer(const Descriptor& connection) noexcept;

}  // namespace platform::windowPacket
