// A shared-memory link of this process, and its peer as the test plays it: with the blocks and the events in hand.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "platform/raii.h"
#include "platform/sections.h"
#include "tests/ipc/rawTransaction.h"
#include "tests/streams/carrier.h"

namespace streams {

using ipcTests::RawBlock;
using ipcTests::RawTransaction;

// One direction: a block of shared memory and its events, as the side that serves makes them.
class Wire {
 public:
  explicit Wire(std::uint32_t size)
      : section_(platform::CreateFileMappingW(platform::INVALID_HANDLE_VALUE, nullptr, platform::PAGE_READWRITE, 0,
                                              size, nullptr)),
        view_(platform::MapViewOfFile(section_.get(), platform::FILE_MAP_READ | platform::FILE_MAP_WRITE, 0, 0, 0)),
        size_(size) {}

  void Describe(LmIpclibLinkChannelResourceWin& resources) const {
    resources.mapping = section_.get();
    resources.dataReadyEvent = dataReady.get();
    resources.dataConsumedEvent = dataConsumed.get();
    resources.errorEvent = error.get();
    resources.stopEvent = stop.get();
  }
  [[nodiscard]] std::span<std::byte> View() const { return {static_cast<std::byte*>(view_.get()), size_}; }

  static platform::UniqueEvent NewEvent() {
    return platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr));
  }
  const platform::UniqueEvent dataReady = NewEvent();
  const platform::UniqueEvent dataConsumed = NewEvent();
  const platform::UniqueEvent error = NewEvent();
  const platform::UniqueEvent stop = NewEvent();

 private:
  const platform::UniqueSection section_;
  const platform::UniqueView view_;
  const std::uint32_t size_;
};

// Takes the signal of an auto-reset event, if there is one.
inline bool TakeSignal(const platform::UniqueEvent& event) {
  return platform::WaitForSingleObject(event.get(), 0) == platform::WAIT_OBJECT_0;
}

// A link that tests can look into.
class OpenLink final : public LmIpclibLinkSharedMemWin {
 public:
  explicit OpenLink(
      Callback stopping = [](LmIpclibLink&) {}, Callback closed = [](LmIpclibLink&) {})
      : LmIpclibLinkSharedMemWin(kEndpoint, 0x8009, std::move(stopping), std::move(closed)) {}

  void Listen(const std::shared_ptr<LmIpclibLinkListener>& listener) { linkListener = listener; }
  [[nodiscard]] std::shared_ptr<LmIpclibStreamCtrl> Control() const { return controlStream; }
  [[nodiscard]] std::size_t Streams() const {
    const Lock lock(m_lock);
    return streams.size();
  }
  [[nodiscard]] std::size_t Unsent() const {
    const Lock lock(m_lock);
    return deferredSends.size();
  }
};

// Attaches the link: it reads from `in`, and writes to `out`.
inline LmIpcStatusCode Attach(LmIpclibLinkSharedMemWin& link, const Wire& in, const Wire& out, std::uint32_t size,
                              platform::ProcessHandle peer = platform::GetCurrentProcess()) {
  LmIpclibLinkChannelResourceWin recvResources(false);
  LmIpclibLinkChannelResourceWin sendResources(false);
  in.Describe(recvResources);
  out.Describe(sendResources);
  unsigned errorCode = 0;
  return link.attach(7, 8, 0x00010000, size, recvResources, sendResources, peer, 9, errorCode);
}

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
  [[nodiscard]] std::shared_ptr<OpenLink> Connect(const std::shared_ptr<Executor>& executor) const {
    auto link = std::make_shared<OpenLink>();
    EXPECT_EQ(link->connecting(), LmIpcStatusCode::Success);
    EXPECT_EQ(Attach(*link, toLink, fromLink, size), LmIpcStatusCode::Success);
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
