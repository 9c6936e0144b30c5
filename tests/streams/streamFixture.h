// A stream on a carrier, and what its callback hears.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tests/streams/carrier.h"
#include "tests/streams/steppedPool.h"

namespace streams {

using State = LmIpclibStream::State;
using Type = LmIpclibMsgType;
using Status = LmIpcStatusCode;
using testing::ElementsAre;
using testing::IsEmpty;

inline constexpr auto kNoLimit = std::chrono::milliseconds::max();
inline constexpr std::uint64_t kPeerId = 0x53000000000000AA;

class StreamFixture : public testing::Test {
 public:
  StreamFixture() = default;
  ~StreamFixture() override {
    LetGo();
    executor.reset();
    EXPECT_EQ(pool::Objects(), 0u);
  }

  // A link that ends lets everything go: no callback, no stream and no task is left.
  void LetGo() {
    link->shutdown();
    pool::RunAll();
    const std::weak_ptr<LmIpclibStream> lastOfStream = stream;
    const std::weak_ptr<Carrier> lastOfLink = link;
    stream.reset();
    link.reset();
    EXPECT_TRUE(lastOfStream.expired());
    EXPECT_TRUE(lastOfLink.expired());
    heard.texts.clear();
  }
  void Renew() {
    LetGo();
    link = Carrier::Connected(executor);
  }

  [[nodiscard]] std::shared_ptr<LmIpclibStream> NewInitiator(StreamFlags flags = StreamFlags(0x00010009)) {
    return std::make_shared<LmIpclibStream>(kEndpoint, u"calc", flags, executor, heard.Callback());
  }
  [[nodiscard]] std::shared_ptr<LmIpclibStream> NewAcceptor(StreamFlags flags = StreamFlags(0x00010000)) const {
    return std::make_shared<LmIpclibStream>(kEndpoint, u"calc", flags, 7, kPeerId, executor, link);
  }

  // Begins to connect, on a thread of its own, and returns when the Open is on its way.
  [[nodiscard]] std::future<Status> BeginConnect() {
    stream = NewInitiator();
    auto status =
        std::async(std::launch::async, [this, connecting = stream] { return connecting->connect({}, link, nullptr); });
    pool::AwaitQueued();
    pool::RunAll();
    return status;
  }
  void Answer(Status status = Status::Success, std::uint32_t flags = 0) const {
    const Block ack{.type = Type::OpenAck,
                    .flags = flags | kFirstBlock | kLastBlock,
                    .data = "",
                    .status = static_cast<std::uint32_t>(status)};
    EXPECT_EQ(ack.To(*stream), Status::Success);
  }

  // The stream is Connected, its callback hears, and what was sent for it is forgotten.
  void Connect() {
    auto status = BeginConnect();
    Answer();
    ASSERT_EQ(status.get(), Status::Success);
    ASSERT_EQ(stream->completeConnect(), Status::Success);
    link->sent.clear();
  }
  void Accept() {
    stream = NewAcceptor();
    ASSERT_EQ(link->addStream(stream), Status::Success);
    ASSERT_EQ(stream->accept({}, heard.Callback()), Status::Success);
  }

  // A message of the peer comes in, and goes to where it belongs.
  void Hear(Type type, std::string_view data = {}) const {
    EXPECT_EQ((Block{.type = type, .data = data}).To(*stream), Status::Success);
    stream->deferredDispatch();
    pool::RunAll();
  }

  Status Send(std::string_view data) {
    const auto sent = stream->send({}, static_cast<std::uint32_t>(data.size()), data.data(), Ignore());
    return sent.status();
  }
  static LmIpclibMsg::OnComplete Ignore() {
    return [](Status, const std::shared_ptr<LmIpclibMsg>&) {};
  }

  // The peer says that it closes; the user has heard the end.
  void BeClosedByPeer() {
    Hear(Type::Close);
    ASSERT_EQ(stream->state(), State::Closing);
  }

  std::shared_ptr<Executor> executor = NewExecutor();
  std::shared_ptr<Carrier> link = Carrier::Connected(executor);
  std::shared_ptr<LmIpclibStream> stream;
  Receiver heard;
};

}  // namespace streams
