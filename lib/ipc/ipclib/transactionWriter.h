// Cuts messages into blocks and packs the blocks into one transaction. The payload is copied once, from where the
// message has it to where the transaction lies.
//
//   TransactionWriter transaction(view);
//   while (transaction.hasRoom() && ...) if (transaction.append(*message).last) ... the next message
//   transaction.finish(trxSeqNo);
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/ipc/ipclib/ipclibMsg.h"

namespace quill::ipc {

class TransactionWriter {
 public:
  struct Block {
    std::uint32_t blockSize;  // Bytes, with the header.
    std::uint32_t dataSize;   // Bytes.
    bool last;                // Nothing of the message remains.
  };

  // Begins a transaction at the beginning of `view`, which may be as large as a u32 counts and is overwritten. Nothing
  // is ever written to one that holds no header: how large it is, the peer says.
  explicit TransactionWriter(std::span<std::byte> view) noexcept;

  // Whether a block of any kind, with a byte of data, still fits.
  [[nodiscard]] bool hasRoom() const noexcept;

  // Adds a block with as much of what remains of the message as there is room for.
  // REQUIRES: hasRoom().
  Block append(LmIpclibMsg& message) noexcept;

  // Completes the header. Also a transaction without blocks is completed; a reader refuses it.
  void finish(std::uint64_t trxSeqNo) noexcept;

  // Bytes so far.
  [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
  [[nodiscard]] std::uint32_t blocks() const noexcept { return blocks_; }

 private:
  [[nodiscard]] bool holdsHeader() const noexcept { return view_.size() >= LmIpclibTrxHeader::kSize; }
  [[nodiscard]] std::uint32_t room() const noexcept {
    return holdsHeader() ? static_cast<std::uint32_t>(view_.size()) - size_ : 0;
  }

  std::span<std::byte> view_;
  std::uint32_t size_ = LmIpclibTrxHeader::kSize;
  std::uint32_t blocks_ = 0;
};

}  // namespace quill::ipc
