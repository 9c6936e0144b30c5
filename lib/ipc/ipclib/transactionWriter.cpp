#include "lib/ipc/ipclib/transactionWriter.h"

#include <cstring>

#include "lib/ipc/ipclib/crc32.h"

namespace quill::ipc {

TransactionWriter::TransactionWriter(std::span<std::byte> view) noexcept : view_(view) {
  if (holdsHeader()) writeTrxHeader(view_, {});
}

bool TransactionWriter::hasRoom() const noexcept { return room() > LmIpclibBlockHeader::kFirstSize; }

TransactionWriter::Block TransactionWriter::append(LmIpclibMsg& message) noexcept {
  LmIpclibBlockHeader header;
  header.msgType = message.msgType();
  header.flags = message.flags() & kFlagsOnTheWire;
  header.status = static_cast<std::uint32_t>(message.status());
  header.srcStreamId = message.srcStreamId();
  header.destStreamId = message.destStreamId();
  if (message.remaining() == message.size()) {
    header.flags |= kFirstBlock;
    header.totalSize = message.size();
  }
  const std::uint32_t headerSize = header.headerSize();
  const std::span<const std::byte> data = message.takeRemaining(room() - headerSize);
  const bool last = message.remaining() == 0;
  if (last) header.flags |= kLastBlock;
  header.dataSize = static_cast<std::uint32_t>(data.size());
  header.blockSize = headerSize + header.dataSize;

  const std::span<std::byte> block = view_.subspan(size_, header.blockSize);
  writeBlockHeader(block, header);
  // Not std::ranges::copy, which goes byte by byte here.
  if (!data.empty()) std::memcpy(block.subspan(headerSize).data(), data.data(), data.size());
  size_ += header.blockSize;
  ++blocks_;
  return {header.blockSize, header.dataSize, last};
}

void TransactionWriter::finish(std::uint64_t trxSeqNo) noexcept {
  if (!holdsHeader()) return;
  LmIpclibTrxHeader header;
  header.trxSeqNo = trxSeqNo;
  header.trxSize = size_;
  header.msgCount = blocks_;
  writeTrxHeader(view_, header);
  header.crc32 = crc32(view_.first(size_));
  writeTrxHeader(view_, header);
}

}  // namespace quill::ipc
