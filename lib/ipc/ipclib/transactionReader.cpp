#include "lib/ipc/ipclib/transactionReader.h"

#include "lib/ipc/ipclib/crc32.h"
#include "lib/ipc/ipclib/littleEndian.h"

namespace quill::ipc {
namespace {

constexpr std::uint32_t kSmallestTransaction = LmIpclibTrxHeader::kSize + LmIpclibBlockHeader::kSize;

// The sum counts its own field as 0.
bool HasItsSum(std::span<std::byte> transaction, std::uint32_t sum) noexcept {
  writeLittleEndian<std::uint32_t>(transaction.subspan<LmIpclibTrxHeader::kCrc32Offset, sizeof sum>(), 0);
  return crc32(transaction) == sum;
}

}  // namespace

LmIpcStatusCode TransactionReader::open(std::uint64_t expectedTrxSeqNo) noexcept {
  const auto header = readTrxHeader(bytes_);
  if (!header || header->trxSize < kSmallestTransaction || header->trxSize > bytes_.size()) {
    return LmIpcStatusCode::ProtocolError;
  }
  const std::span<std::byte> transaction = bytes_.first(header->trxSize);
  if (!HasItsSum(transaction, header->crc32)) return LmIpcStatusCode::ProtocolError;
  if (header->msgCount == 0 || header->trxSeqNo != expectedTrxSeqNo) return LmIpcStatusCode::ProtocolError;
  rest_ = transaction.subspan(LmIpclibTrxHeader::kSize);
  blocksLeft_ = header->msgCount;
  return LmIpcStatusCode::Success;
}

TransactionReader::Step TransactionReader::next(LmIpclibBlock& block) noexcept {
  if (blocksLeft_ == 0) return ended_;
  constexpr std::size_t kTypeSize = sizeof(LmIpclibMsgType);
  if (rest_.size() < kTypeSize) return end(Step::Fault);
  if (!isSent(LmIpclibMsgType{readLittleEndian<std::uint32_t>(rest_.first<kTypeSize>())})) return end(Step::End);
  const auto header = readBlockHeader(rest_);
  if (!header || !isWellFramed(*header) || header->blockSize > rest_.size()) return end(Step::Fault);
  block = {*header, rest_.subspan(header->headerSize(), header->dataSize)};
  rest_ = rest_.subspan(header->blockSize);
  --blocksLeft_;
  return Step::Block;
}

TransactionReader::Step TransactionReader::end(Step step) noexcept {
  blocksLeft_ = 0;
  ended_ = step;
  return step;
}

}  // namespace quill::ipc
