// Checks a transaction that came from another process, and gives out its blocks. Whatever the bytes are, nothing
// outside them is read.
//
//   TransactionReader transaction(copied);
//   if (transaction.open(trxSeqNo) != LmIpcStatusCode::Success) ... refused
//   while (transaction.next(block) == TransactionReader::Step::Block) ...
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibWire.h"

namespace quill::ipc {

struct LmIpclibBlock {
  LmIpclibBlockHeader header;
  std::span<const std::byte> data;  // header.dataSize bytes within the transaction.
};

class TransactionReader {
 public:
  enum class Step : std::uint8_t {
    Block,  // The next block.
    End,    // No more blocks; or one of no known type, behind which nothing is told, without that being a fault.
    Fault,  // The block does not agree with itself or with the transaction. Nothing is told behind it either.
  };

  // `copied` was copied out of the shared memory, so that nobody changes what has been checked. It stays the caller's,
  // and the reader works in it.
  explicit TransactionReader(std::span<std::byte> copied) noexcept : bytes_(copied) {}

  // Checks the header and the sum. ProtocolError: the transaction is to be refused as a whole. Call first, and once.
  [[nodiscard]] LmIpcStatusCode open(std::uint64_t expectedTrxSeqNo) noexcept;

  // REQUIRES: open has succeeded. After End or Fault it stays so.
  [[nodiscard]] Step next(LmIpclibBlock& block) noexcept;

 private:
  [[nodiscard]] Step end(Step step) noexcept;

  std::span<std::byte> bytes_;
  std::span<const std::byte> rest_;  // The blocks that have not been told yet.
  std::uint32_t blocksLeft_ = 0;
  Step ended_ = Step::End;
};

}  // namespace quill::ipc
