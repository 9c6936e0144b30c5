#include "lib/ipc/ipclib/crc32.h"

#include "lib/ipc/ipclib/crc32Methods.h"

namespace quill::ipc {

std::uint32_t crc32(std::span<const std::byte> bytes) noexcept {
  static const crc32Methods::Method method =
      crc32Methods::foldingWorks() ? crc32Methods::byFolding : crc32Methods::bySlices;
  return ~method(0xFFFFFFFF, bytes);
}

}  // namespace quill::ipc
