#include "lib/ipc/ipclib/idCounter.h"

#include "platform/clock.h"

namespace quill::ipc {

std::uint64_t drawTaggedId(std::uint8_t tag, std::atomic<std::uint32_t>& counter) noexcept {
  const std::uint64_t ticks = platform::GetTickCount() & 0xFFFFFF;
  return std::uint64_t{tag} << 56 | ticks << 32 | drawId(counter);
}

}  // namespace quill::ipc
