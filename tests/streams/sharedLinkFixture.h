// A shared-memory link with a stream on it, and the peer that the test plays.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/streams/rawPeer.h"
#include "tests/streams/streamFixture.h"

namespace streams {

class SharedLink : public testing::Test {
 public:
  SharedLink() = default;
  ~SharedLink() override {
    if (link) link->shutdown();
    pool::RunAll();
    const std::weak_ptr<OpenLink> last = link;
    stream.reset();
    link.reset();
    EXPECT_TRUE(last.expired());
    executor.reset();
    EXPECT_EQ(pool::Objects(), 0u);
  }

  // Both sides are up, and a stream is there that the peer knows as kPeerId.
  void Connect(std::uint32_t channelSize = 4096, platform::ProcessHandle process = platform::GetCurrentProcess()) {
    peer = std::make_unique<RawPeer>(channelSize);
    link = peer->Connect(executor, process);
    peer->Consume();
    stream = NewStream();
  }
  std::shared_ptr<LmIpclibStream> NewStream(std::uint64_t peerId = kPeerId, Receiver* receiver = nullptr) {
    auto added = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(), 7, peerId, executor, link);
    EXPECT_EQ(link->addStream(added), Status::Success);
    EXPECT_EQ(added->accept({}, (receiver != nullptr ? *receiver : heard).Callback()), Status::Success);
    return added;
  }
  // The buffer lives as long as the test.
  Status Send(const std::shared_ptr<LmIpclibStream>& from, std::string_view data) {
    const auto& kept = buffers.emplace_back(data);
    return from
        ->send({}, static_cast<std::uint32_t>(kept.size()), kept.data(),
               [this](Status status, const std::shared_ptr<LmIpclibMsg>&) { completed.push_back(status); })
        .status();
  }
  // Connects, and closes the link while the peer has not taken the first of two messages yet.
  void CloseWithOneUnsent() {
    Connect();
    ASSERT_EQ(Send(stream, "one"), Status::Success);
    pool::RunAll();
    ASSERT_EQ(Send(stream, "two"), Status::Success);
    link->close();
    pool::RunAll();
    ASSERT_EQ(link->state(), LinkState::Closing);
  }
  [[nodiscard]] RawBlock For(const std::shared_ptr<LmIpclibStream>& to, std::string data,
                             std::uint64_t source = kPeerId) const {
    RawBlock block;
    block.data = std::move(data);
    block.source = source;
    block.destination = to->streamId();
    return block;
  }
  static RawTransaction Of(std::initializer_list<RawBlock> blocks) { return blocks; }

  void ExpectFault() {
    EXPECT_EQ(link->state(), LinkState::Closed);
    EXPECT_TRUE(TakeSignal(peer->toLink.error)) << "the peer is told";
    EXPECT_TRUE(TakeSignal(peer->toLink.stop)) << "and once more when the link has ended";
    EXPECT_TRUE(TakeSignal(peer->toLink.dataConsumed)) << "that of the start";
    EXPECT_FALSE(TakeSignal(peer->toLink.dataConsumed)) << "the faulty transaction stays where it is";
    EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  }

  std::shared_ptr<Executor> executor = NewExecutor();
  std::unique_ptr<RawPeer> peer;
  std::shared_ptr<OpenLink> link;
  std::shared_ptr<LmIpclibStream> stream;
  Receiver heard;
  std::list<Receiver> others;
  std::list<std::string> buffers;
  std::vector<Status> completed;
};

}  // namespace streams
