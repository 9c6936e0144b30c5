// A link of this process whose peer a fuzzer plays, with a stream on it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "platform/raii.h"
#include "tests/fuzz/fuzzTarget.h"
#include "tests/streams/openLink.h"
#include "tests/streams/steppedPool.h"

namespace fuzz {

using namespace quill::ipc;

// A message that claims more would be given the room, as it is promised; here it only takes time.
inline constexpr std::uint32_t kLargestMessage = 1 << 20;
inline constexpr std::uint64_t kPeerStream = 0x53000000000000AA;
inline constexpr std::uint32_t kChannelSize = 4096;

class LinkUnderTest {
 public:
  using Hears = std::function<void(const LmIpclibMsg& message)>;

  // The link is told that its blocks are of `channelSize`. `hears` is told of each message that a stream delivers.
  explicit LinkUnderTest(
      std::uint32_t channelSize = kChannelSize, Hears hears = [](const LmIpclibMsg&) {})
      : hears_(std::move(hears)) {
    link->Listen(listener_);
    Succeeds(link->connecting());
    Succeeds(streams::Attach(*link, toLink, fromLink, channelSize));
    unsigned errorCode = 0;
    Succeeds(link->start(executor_, errorCode));
    stream =
        std::make_shared<LmIpclibStream>(streams::kEndpoint, u"fuzzed", StreamFlags(), 0, kPeerStream, executor_, link);
    Succeeds(link->addStream(stream));
    Succeeds(stream->accept({}, Callback(*stream)));
  }
  LinkUnderTest(const LinkUnderTest&) = delete;
  LinkUnderTest& operator=(const LinkUnderTest&) = delete;
  // Whatever came in, a link can be ended, and then nothing is left of it.
  ~LinkUnderTest() {
    Settle();
    link->shutdown();
    Settle();
    Require(link->state() == LmIpclibLink::State::Closed);
    const std::weak_ptr<LmIpclibStream> lastOfStream = stream;
    const std::weak_ptr<streams::OpenLink> lastOfLink = link;
    stream.reset();
    link.reset();
    Require(lastOfStream.expired() && lastOfLink.expired());
    executor_.reset();
    Require(streams::pool::Objects() == 0);
  }

  // What users do.
  void Act(std::uint8_t what) const {
    constexpr auto kNoLimit = std::chrono::milliseconds::max();
    switch (what % 8) {
      case 0: return static_cast<void>(stream->close(kNoLimit));
      case 1: return static_cast<void>(stream->close(std::chrono::milliseconds(1)));
      case 2: return stream->shutdown();
      case 3: return link->close();
      case 4: return streams::pool::Fire();
      case 5: return static_cast<void>(platform::SetEvent(fromLink.dataConsumed.get()));
      case 6:
        return static_cast<void>(platform::SetEvent((what & 8) != 0 ? fromLink.stop.get() : fromLink.error.get()));
      default: static_cast<void>(stream->send({}, 1, "x", [](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {}));
    }
  }
  static void Settle() { streams::pool::RunAll(); }

  const streams::Wire toLink{kChannelSize};
  const streams::Wire fromLink{kChannelSize};
  std::shared_ptr<streams::OpenLink> link = std::make_shared<streams::OpenLink>();
  std::shared_ptr<LmIpclibStream> stream;

 private:
  static void Succeeds(LmIpcStatusCode status) { Require(status == LmIpcStatusCode::Success); }
  LmIpclibStream::RecvCallback Callback(LmIpclibStream& of) {
    return [&of, this](LmIpcStatusCode status, const std::shared_ptr<LmIpclibMsg>& message) {
      Require(status == LmIpcStatusCode::Success && message->remaining() == 0);
      hears_(*message);
      std::uint32_t sum = 0;
      for (std::uint32_t at = 0; at < message->size(); ++at) sum += std::to_integer<std::uint32_t>(message->data()[at]);
      if (message->size() == 0 || sum % 16 == 0) static_cast<void>(of.close(std::chrono::milliseconds::max()));
    };
  }

  const Hears hears_;
  std::shared_ptr<streams::Executor> executor_ = quill::task::CreateWindowsThreadPoolExecutor(nullptr, 0);
  std::shared_ptr<LmIpclibLinkListener> listener_ = std::make_shared<LmIpclibLinkListener>(
      streams::kEndpoint, [this](const std::shared_ptr<LmIpclibStream>& offered) {
        Require(!offered->streamName().empty());
        if (offered->streamName()[0] == u'r') return LmIpcStatusCode::AccessDenied;
        return offered->accept({}, Callback(*offered));
      });
};

// In the blocks of an input the stream is called 1. Puts its id there, and keeps messages small.
inline void NameTheStream(std::span<std::byte> bytes, std::uint64_t streamId) {
  std::size_t at = LmIpclibTrxHeader::kSize;
  while (at < bytes.size()) {
    const auto block = bytes.subspan(at);
    auto header = readBlockHeader(block);
    if (!header) return;
    if (header->destStreamId == 1) header->destStreamId = streamId;
    if (header->srcStreamId == 1) header->srcStreamId = kPeerStream;
    header->totalSize %= kLargestMessage;
    writeBlockHeader(block, *header);
    at += std::max<std::size_t>(header->headerSize(), header->blockSize);
  }
}

// Reads an input from its beginning. What is not there is 0.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}
  [[nodiscard]] bool IsEmpty() const { return rest_.empty(); }
  std::uint8_t Byte() {
    if (rest_.empty()) return 0;
    const std::uint8_t first = rest_[0];
    rest_ = rest_.subspan(1);
    return first;
  }
  std::uint32_t Number() {
    const std::uint32_t low = Byte();
    return low | static_cast<std::uint32_t>(Byte()) << 8;
  }
  std::span<const std::uint8_t> Bytes(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const std::uint8_t> rest_;
};

}  // namespace fuzz
