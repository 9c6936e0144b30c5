// One direction of a link, as its serving side makes it: a block of memory that both processes see, and four events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/raii.h"
#include "tests/support/rpcService.h"

namespace standIn {

class Channel {
 public:
  // Throws std::system_error when the system cannot make it.
  explicit Channel(std::uint32_t size);

  // What is in the block now. The client may write at any time, so that whoever looks twice looks at a copy.
  [[nodiscard]] std::vector<std::byte> Copy() const;
  void Write(std::span<const std::byte> bytes) const;
  // For the client. They stay this channel's own.
  [[nodiscard]] support::ChannelHandles Handles() const;

  const platform::UniqueEvent dataReady;
  const platform::UniqueEvent dataConsumed;
  const platform::UniqueEvent error;
  const platform::UniqueEvent stop;

 private:
  const platform::UniqueSection mapping_;
  const platform::UniqueView view_;
  const std::size_t size_;
};

// An event that one wait consumes, or one that stays set. Throws std::system_error.
[[nodiscard]] platform::UniqueEvent NewEvent(bool staysSet = false);

[[noreturn]] void ThrowLastError(const char* what);

}  // namespace standIn
