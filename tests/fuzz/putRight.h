// Puts right what a fuzzer cannot guess, so that the damage behind it is met.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/ipc/ipclib/crc32.h"
#include "lib/ipc/ipclib/ipclibWire.h"
#include "lib/ipc/ipclib/littleEndian.h"

namespace fuzz {

// Of a transaction. Bit 0 of `what`: the sum; bit 1: the size; bit 2: the number.
inline void PutRight(std::span<std::byte> bytes, std::uint8_t what, std::uint64_t trxSeqNo) {
  using namespace quill::ipc;
  if (bytes.size() < LmIpclibTrxHeader::kSize) return;
  if ((what & 2) != 0)
    writeLittleEndian<std::uint32_t>(bytes.subspan<20, 4>(), static_cast<std::uint32_t>(bytes.size()));
  if ((what & 4) != 0) writeLittleEndian<std::uint64_t>(bytes.subspan<8, 8>(), trxSeqNo);
  if ((what & 1) != 0) {
    const std::size_t size =
        std::min<std::size_t>(readLittleEndian<std::uint32_t>(bytes.subspan<20, 4>()), bytes.size());
    writeLittleEndian<std::uint32_t>(bytes.subspan<4, 4>(), 0);
    writeLittleEndian<std::uint32_t>(bytes.subspan<4, 4>(), crc32(bytes.first(size)));
  }
}

}  // namespace fuzz
