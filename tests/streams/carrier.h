// A link that carries nothing by itself: what streams send is kept for the test to look at, and the test says what
// comes in and how sends end.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibStreamCtrl.h"
#include "platform/raii.h"
#include "tests/streams/openLink.h"
#include "tests/streams/steppedPool.h"

namespace streams {

inline std::shared_ptr<Executor> NewExecutor() { return quill::task::CreateWindowsThreadPoolExecutor(nullptr, 0); }

class Carrier final : public LmIpclibLink {
 public:
  using SentMessages = std::vector<std::shared_ptr<LmIpclibMsg>>;

  explicit Carrier(
      Callback stopping = [](LmIpclibLink&) {}, Callback closed = [](LmIpclibLink&) {})
      : LmIpclibLink(kEndpoint, 0x8000, std::move(stopping), std::move(closed)) {}

  // Connected, and able to send.
  static std::shared_ptr<Carrier> Connected(const std::shared_ptr<Executor>& executor) {
    auto link = std::make_shared<Carrier>();
    EXPECT_EQ(link->connecting(), LmIpcStatusCode::Success);
    unsigned errorCode = 0;
    EXPECT_EQ(link->start(executor, errorCode), LmIpcStatusCode::Success);
    return link;
  }

  LmIpcStatusCode start(const std::shared_ptr<Executor>& executor, unsigned& errorCode) override {
    const Lock lock(m_lock);
    const LmIpcStatusCode status =
        failsToStart ? LmIpcStatusCode::OutOfMemory : LmIpclibLink::start(executor, errorCode);
    if (status != LmIpcStatusCode::Success) return status;
    sendState = SendState::Idle;
    setState(State::Connected);
    return status;
  }
  void stop(Lock& lock) override {
    if (state() == State::Error) {
      setState(State::ShuttingDown);
      const auto left = streams;
      lock.unlock();
      stopWorkers();
      for (const auto& [id, stream] : left) stream->shutdown();
      lock.lock();
    } else if (state() == State::Connected) {
      setState(State::Closing);
    }
    shutdownLinkWithCheck(lock);
  }
  LmIpcStatusCode recv(StreamTable&) override { return LmIpcStatusCode::Success; }
  [[nodiscard]] platform::EventHandle getRecvEvent() const override { return recvEvent_.get(); }
  void stopWorkers() override {
    Lock lock(m_lock);
    const auto control = std::exchange(controlStream, nullptr);
    lock.unlock();
    if (control) control->stop();
  }
  void linkError() override {
    ++faults;
    Lock lock(m_lock);
    if (state() == State::Closed || state() == State::ShuttingDown) return;
    setState(State::Error);
    stop(lock);
  }
  void linkStop(Lock&) override {}
  LmIpcStatusCode performDeferredSend(Lock& lock) override {
    while (!deferredSends.empty()) {
      sent.push_back(deferredSends.front());
      deferredSends.pop_front();
    }
    sendState = SendState::Idle;
    if (state() == State::Closing) shutdownLinkWithCheck(lock);
    return LmIpcStatusCode::Success;
  }

  // From now on it takes nothing, as one that is stopping.
  void Refuse() {
    const Lock lock(m_lock);
    setState(State::Closing);
  }
  void Listen(const std::shared_ptr<LmIpclibLinkListener>& listener) { linkListener = listener; }
  [[nodiscard]] std::shared_ptr<LmIpclibStreamCtrl> Control() const { return controlStream; }
  [[nodiscard]] std::size_t Streams() const {
    const Lock lock(m_lock);
    return streams.size();
  }
  [[nodiscard]] std::shared_ptr<LmIpclibStream> Stream(std::uint64_t id) const {
    const Lock lock(m_lock);
    const auto place = streams.find(id);
    return place == streams.end() ? nullptr : place->second;
  }

  // What has been sent since the last call.
  [[nodiscard]] SentMessages TakeSent() { return std::exchange(sent, {}); }
  [[nodiscard]] std::vector<LmIpclibMsgType> TakeSentTypes() {
    std::vector<LmIpclibMsgType> types;
    for (const auto& message : TakeSent()) types.push_back(message->msgType());
    return types;
  }

  bool failsToStart = false;
  int faults = 0;
  SentMessages sent;

 private:
  const platform::UniqueEvent recvEvent_{platform::CreateEventW(nullptr, false, false, nullptr)};
};

// A block of a message, as a link hands it over.
struct Block {
  LmIpclibMsgType type = LmIpclibMsgType::Msg;
  std::uint32_t flags = kFirstBlock | kLastBlock;
  std::string_view data = {};
  std::uint32_t status = 0;
  std::uint64_t source = 0x53000000000000AA;
  std::uint32_t totalSize = static_cast<std::uint32_t>(data.size());

  LmIpcStatusCode To(LmIpclibStream& stream) const {
    LmIpclibBlockHeader header;
    header.msgType = type;
    header.flags = flags;
    header.status = status;
    header.srcStreamId = source;
    header.destStreamId = stream.streamId();
    header.dataSize = static_cast<std::uint32_t>(data.size());
    header.totalSize = totalSize;
    header.blockSize = header.headerSize() + header.dataSize;
    return stream.recvBlock(header, data.data());
  }
};

// What a stream's callback has been called with.
class Receiver {
 public:
  [[nodiscard]] LmIpclibStream::RecvCallback Callback() {
    return [this](LmIpcStatusCode status, const std::shared_ptr<LmIpclibMsg>& message) {
      EXPECT_EQ(status, LmIpcStatusCode::Success);
      texts.push_back(message->size() == 0 ? "<end>" : TextOf(*message));
      if (then) then(*message);
    };
  }

  std::vector<std::string> texts;
  std::function<void(const LmIpclibMsg&)> then;
};

}  // namespace streams
