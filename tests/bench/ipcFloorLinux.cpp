#include "tests/bench/ipcFloorLinux.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/crc32.h"
#include "lib/ipc/ipclib/ipclibWire.h"
#include "lib/ipc/ipclib/littleEndian.h"
#include "tests/bench/plainPool.h"

namespace bench {
namespace {

using namespace quill::ipc;

constexpr std::size_t kBlockSize = 65536;

enum class Delivery : std::uint8_t { Inline, Pool };
enum class Packing : std::uint8_t { Packed, OneEach };

void Signal(int event) {
  const std::uint64_t one = 1;
  if (write(event, &one, sizeof one) != sizeof one) Fail("no event can be set");
}

bool Take(int event) {
  std::uint64_t count = 0;
  return read(event, &count, sizeof count) == sizeof count;
}

int NewEvent() { return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

// One direction.
struct Channel {
  Channel() {
    const int memory = memfd_create("floor", MFD_CLOEXEC);
    if (memory < 0 || ftruncate(memory, kBlockSize) != 0) Fail("no memory to share");
    block = static_cast<std::byte*>(mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0));
    if (block == MAP_FAILED) Fail("no view of the memory");
    close(memory);
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  ~Channel() {
    munmap(block, kBlockSize);
    close(dataReady);
    close(dataConsumed);
  }

  std::byte* block = nullptr;
  const int dataReady = NewEvent();
  const int dataConsumed = NewEvent();
};

// A message that is being sent: what remains of it.
struct Outgoing {
  std::span<const std::byte> rest;
  std::size_t size;
};

// Writes transactions, as they fit into the block.
class Writer {
 public:
  using HearSent = std::function<void()>;  // For each message that is all written.

  Writer(const Channel& channel, Packing packing, HearSent hearSent)
      : channel_(channel), packing_(packing), hearSent_(std::move(hearSent)) {}

  // Whoever calls first while the peer has taken all writes at once.
  void Send(std::span<const std::byte> message) {
    const std::lock_guard lock(lock_);
    queue_.push_back({.rest = message, .size = message.size()});
    if (mayWrite_) Write();
  }
  void PeerHasTaken() {
    const std::lock_guard lock(lock_);
    mayWrite_ = true;
    if (!queue_.empty()) Write();
  }

 private:
  void Write() {
    LmIpclibTrxHeader header;
    header.trxSize = LmIpclibTrxHeader::kSize;
    do {
      header.trxSize += WriteBlock({channel_.block + header.trxSize, kBlockSize - header.trxSize});
      ++header.msgCount;
    } while (packing_ == Packing::Packed && !queue_.empty() &&
             header.trxSize + LmIpclibBlockHeader::kFirstSize < kBlockSize);
    header.trxSeqNo = ++sent_;
    const std::span<std::byte> transaction(channel_.block, header.trxSize);
    writeTrxHeader(transaction, header);
    header.crc32 = crc32(transaction);
    writeTrxHeader(transaction, header);
    mayWrite_ = false;
    Signal(channel_.dataReady);
  }
  std::uint32_t WriteBlock(std::span<std::byte> room) {
    Outgoing& message = queue_.front();
    LmIpclibBlockHeader header;
    header.msgType = LmIpclibMsgType::Msg;
    if (message.rest.size() == message.size) {
      header.flags |= kFirstBlock;
      header.totalSize = static_cast<std::uint32_t>(message.size);
    }
    header.dataSize = static_cast<std::uint32_t>(std::min(room.size() - header.headerSize(), message.rest.size()));
    if (header.dataSize == message.rest.size()) header.flags |= kLastBlock;
    header.blockSize = header.headerSize() + header.dataSize;
    writeBlockHeader(room, header);
    std::memcpy(room.data() + header.headerSize(), message.rest.data(), header.dataSize);
    message.rest = message.rest.subspan(header.dataSize);
    if (message.rest.empty()) {
      queue_.pop_front();
      hearSent_();
    }
    return header.blockSize;
  }

  const Channel& channel_;
  const Packing packing_;
  const HearSent hearSent_;
  std::mutex lock_;
  std::deque<Outgoing> queue_;
  bool mayWrite_ = true;
  std::uint64_t sent_ = 0;
};

using Message = std::vector<std::byte>;

// Takes transactions out of the block, and puts messages together.
class Reader {
 public:
  explicit Reader(const Channel& channel) : channel_(channel) {}

  // Those that the transaction completes.
  [[nodiscard]] std::vector<Message> TakeTransaction() {
    std::vector<Message> messages;
    const auto header = readTrxHeader({channel_.block, LmIpclibTrxHeader::kSize});
    const std::span transaction(copied_.data(), std::min<std::size_t>(header->trxSize, copied_.size()));
    std::memcpy(transaction.data(), channel_.block, transaction.size());
    writeLittleEndian<std::uint32_t>(transaction.subspan<LmIpclibTrxHeader::kCrc32Offset, 4>(), 0);
    if (crc32(transaction) != header->crc32 || header->trxSeqNo != ++taken_) Fail("the floor carries something else");
    auto rest = transaction.subspan(LmIpclibTrxHeader::kSize);
    for (std::uint32_t i = 0; i < header->msgCount; ++i) rest = rest.subspan(TakeBlock(rest, messages));
    Signal(channel_.dataConsumed);
    return messages;
  }

 private:
  std::uint32_t TakeBlock(std::span<const std::byte> from, std::vector<Message>& messages) {
    const auto header = readBlockHeader(from);
    if (!header || header->blockSize > from.size()) Fail("the floor carries something else");
    if ((header->flags & kFirstBlock) != 0) partial_.reserve(header->totalSize);
    const auto data = from.subspan(header->headerSize(), header->dataSize);
    partial_.insert(partial_.end(), data.begin(), data.end());
    if ((header->flags & kLastBlock) != 0) messages.push_back(std::exchange(partial_, {}));
    return header->blockSize;
  }

  const Channel& channel_;
  Message copied_ = Message(kBlockSize);
  Message partial_;
  std::uint64_t taken_ = 0;
};

class Floor final : public CallbackLine {
 public:
  Floor(Delivery delivery, Packing packing) : delivery_(delivery), packing_(packing) {}

  void Serve() override {
    Run(back_, there_, [this](std::byte first) { HearMessage(first); });
  }
  void Open() override {
    near_ = std::thread([this] { Run(there_, back_, [this](std::byte) { HearAnswer(); }); });
    while (!isOpen_) std::this_thread::yield();
  }
  ~Floor() override {
    if (near_.joinable()) {
      Signal(end_);
      near_.join();
    }
    close(end_);
  }

 private:
  void Put(std::span<const std::byte> message) override { writer_->Send(message); }

  template <class Hear>
  void Run(const Channel& out, const Channel& in, Hear hear) {
    writer_.emplace(out, packing_, [this] { HearSent(); });
    if (delivery_ == Delivery::Pool) pool_.emplace(1U);  // One thread keeps the order.
    isOpen_ = true;
    Reader reader(in);
    pollfd events[] = {{.fd = out.dataConsumed, .events = POLLIN, .revents = 0},
                       {.fd = in.dataReady, .events = POLLIN, .revents = 0},
                       {.fd = end_, .events = POLLIN, .revents = 0}};
    while (poll(events, std::size(events), -1) > 0 && events[2].revents == 0) {
      if (events[0].revents != 0 && Take(out.dataConsumed)) writer_->PeerHasTaken();
      if (events[1].revents != 0 && Take(in.dataReady)) Deliver(reader.TakeTransaction(), hear);
    }
  }
  template <class Hear>
  void Deliver(std::vector<Message> messages, Hear hear) {
    auto tell = [messages = std::move(messages), hear] {
      for (const Message& message : messages) hear(message.front());
    };
    if (pool_) {
      pool_->Submit(std::move(tell));
    } else {
      tell();
    }
  }

  const Delivery delivery_;
  const Packing packing_;
  const Channel there_;
  const Channel back_;
  std::optional<Writer> writer_;
  std::optional<PlainPool> pool_;
  std::atomic<bool> isOpen_{false};
  const int end_ = NewEvent();
  std::thread near_;
};

}  // namespace

std::unique_ptr<IpcLine> NewInlineFloor() { return std::make_unique<Floor>(Delivery::Inline, Packing::Packed); }
std::unique_ptr<IpcLine> NewPoolFloor() { return std::make_unique<Floor>(Delivery::Pool, Packing::Packed); }
std::unique_ptr<IpcLine> NewUnpackedFloor() { return std::make_unique<Floor>(Delivery::Pool, Packing::OneEach); }

}  // namespace bench
