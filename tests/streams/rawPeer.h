// A shared-memory link of this process, and its peer as the test plays it: with the blocks and the events in hand.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tests/ipc/rawTransaction.h"
#include "tests/streams/carrier.h"
#include "tests/streams/openLink.h"

namespace streams {

using ipcTests::RawBlock;
using ipcTests::RawTransaction;

// What the link has written.
struct Received {
  std::uint64_t trxSeqNo;
  std::uint32_t trxSize;
  struct Block {
    LmIpclibBlockHeader header;
    std::string data;
  };
  std::vector<Block> blocks;
};

class RawPeer {
 public:
  explicit RawPeer(std::uint32_t channelSize = 4096) : size(channelSize), toLink(channelSize), fromLink(channelSize) {}

  // A link that has started; the peer has not said yet that it is there.
  [[nodiscard]] std::shared_ptr<OpenLink> Connect(
      const std::shared_ptr<Executor>& executor,
      platform::ProcessHandle process = platform::GetCurrentProcess()) const {
    auto link = std::make_shared<OpenLink>();
    EXPECT_EQ(link->connecting(), LmIpcStatusCode::Success);
    EXPECT_EQ(Attach(*link, toLink, fromLink, size, process), LmIpcStatusCode::Success);
    unsigned errorCode = 0;
    EXPECT_EQ(link->start(executor, errorCode), LmIpcStatusCode::Success);
    return link;
  }

  void Put(RawTransaction transaction, std::uint32_t trxSeqNo) const {
    transaction.Seal(static_cast<std::uint32_t>(transaction.bytes.size()), transaction.blocks, trxSeqNo);
    PutBytes(transaction.bytes);
  }
  void PutBytes(std::span<const std::byte> bytes) const {
    ASSERT_LE(bytes.size(), toLink.View().size());
    std::ranges::copy(bytes, toLink.View().begin());
    platform::SetEvent(toLink.dataReady.get());
    pool::RunAll();
  }

  // The peer is there, or has taken the last transaction.
  void Consume() const {
    platform::SetEvent(fromLink.dataConsumed.get());
    pool::RunAll();
  }
  // The transaction that the link has just said to be there.
  [[nodiscard]] Received Take() const {
    EXPECT_TRUE(TakeSignal(fromLink.dataReady));
    std::vector<std::byte> copied(fromLink.View().begin(), fromLink.View().end());
    const auto trx = readTrxHeader(copied);
    EXPECT_LE(trx->trxSize, size);
    auto zeroed = std::vector(copied.begin(), copied.begin() + trx->trxSize);
    std::memset(&zeroed[LmIpclibTrxHeader::kCrc32Offset], 0, 4);
    EXPECT_EQ(ipcTests::TableCrc(zeroed), trx->crc32);
    Received received{trx->trxSeqNo, trx->trxSize, {}};
    auto rest = std::span<const std::byte>(copied).first(trx->trxSize).subspan(LmIpclibTrxHeader::kSize);
    for (std::uint32_t i = 0; i < trx->msgCount; ++i) {
      const auto header = readBlockHeader(rest);
      if (!header) break;
      const auto data = rest.subspan(header->headerSize(), header->dataSize);
      received.blocks.push_back({*header, {reinterpret_cast<const char*>(data.data()), data.size()}});
      rest = rest.subspan(header->blockSize);
    }
    EXPECT_EQ(received.blocks.size(), trx->msgCount);
    EXPECT_TRUE(rest.empty());
    return received;
  }
  [[nodiscard]] bool HasAnything() const { return TakeSignal(fromLink.dataReady); }

  const std::uint32_t size;
  const Wire toLink;
  const Wire fromLink;
};

}  // namespace streams
