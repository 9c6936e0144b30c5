// In which order a link writes what it is given, and when it says so.
#include <thread>
#include <vector>

#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

std::vector<std::string> DataOf(const Received& received) {
  std::vector<std::string> data;
  for (const auto& block : received.blocks) data.push_back(block.data);
  return data;
}

TEST_F(SharedLink, SendsWhatWasSentWhileItConnectedAheadOfTheRest) {
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  const auto send = [this](std::string_view text) {
    return link->send(std::make_shared<LmIpclibMsg>(
        Type::Msg, 0, Status::Success, nullptr, 1, 2, static_cast<std::uint32_t>(text.size()),
        reinterpret_cast<const std::byte*>(text.data()),
        [this](Status status, const std::shared_ptr<LmIpclibMsg>&) { completed.push_back(status); }));
  };
  EXPECT_EQ(send("too early"), Status::InvalidState);
  ASSERT_EQ(link->connecting(), Status::Success);
  EXPECT_EQ(send("one"), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::Success);
  EXPECT_EQ(send("two"), Status::Success);
  unsigned errorCode = 0;
  ASSERT_EQ(link->start(executor, errorCode), Status::Success);
  EXPECT_EQ(send("three"), Status::Success);
  pool::RunAll();
  EXPECT_FALSE(peer->HasAnything()) << "the peer is not there yet";
  EXPECT_THAT(completed, IsEmpty());
  peer->Consume();
  EXPECT_THAT(DataOf(peer->Take()), ElementsAre("one", "two", "three"));
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::Success, Status::Success));
}

TEST_F(SharedLink, CompletesSendsInTheirOrderOnceThePeerCanReadThem) {
  Connect();
  std::vector<std::string> order;
  for (const char* text : {"one", "two", "three"}) {
    ASSERT_TRUE(stream->send({}, 1, text, [&, text](Status, const std::shared_ptr<LmIpclibMsg>&) {
      order.emplace_back(text);
      EXPECT_EQ(peer->HasAnything(), order.size() == 1) << "the signal has come, and came once";
    }));
  }
  EXPECT_THAT(order, IsEmpty());
  pool::RunAll();
  EXPECT_THAT(order, ElementsAre("one", "two", "three"));
}

// Sends "last" while the link, on another thread, writes a transaction of `count` messages. What that one holds.
std::vector<std::string> SentWhileFilling(SharedLink& test, std::size_t count) {
  test.peer = std::make_unique<RawPeer>(1 << 20);
  test.link = test.peer->Connect(test.executor);
  test.stream = test.NewStream();
  for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(test.Send(test.stream, "x"), Status::Success);
  std::thread filling([&] { test.peer->Consume(); });
  while (test.link->BytesSent() == 0) std::this_thread::yield();
  EXPECT_EQ(test.Send(test.stream, "last"), Status::Success);
  filling.join();
  return DataOf(test.peer->Take());
}

// When it comes is up to the machine: late once, it is the first of the next transaction. Never in time would be a
// fault.
TEST_F(SharedLink, TakesWhatIsSentWhileItFillsATransactionIntoTheSameOne) {
  constexpr std::size_t kCount = 5000;
  constexpr int kAttempts = 100;
  bool joined = false;
  for (int i = 0; i < kAttempts && !joined; ++i) {
    std::vector<std::string> data = SentWhileFilling(*this, kCount);
    joined = data.size() == kCount + 1;
    if (!joined) {
      peer->Consume();
      EXPECT_THAT(data, testing::Each("x"));
      data = DataOf(peer->Take());
      EXPECT_EQ(data.size(), 1u);
    }
    ASSERT_EQ(data.back(), "last");
    EXPECT_THAT(std::vector(data.begin(), data.end() - 1), testing::Each("x"));
    link->shutdown();
    pool::RunAll();
  }
  EXPECT_TRUE(joined);
}

TEST_F(SharedLink, CompletesSendsThatItGivesUpInTheirOrder) {
  Connect();
  ASSERT_EQ(Send(stream, "on its way"), Status::Success);
  pool::RunAll();
  std::vector<std::string> order;
  for (const char* text : {"one", "two", "three"}) {
    ASSERT_TRUE(stream->send({}, 1, text, [&, text](Status status, const std::shared_ptr<LmIpclibMsg>&) {
      EXPECT_EQ(status, Status::StreamClosed);
      order.emplace_back(text);
    }));
  }
  link->shutdown();
  EXPECT_THAT(order, ElementsAre("one", "two", "three"));
}

TEST_F(SharedLink, GoesOnWithTheMessageThatItHasCutAheadOfThoseSentSince) {
  Connect(256);
  ASSERT_EQ(Send(stream, std::string(256 - 68, 'a') + "bc"), Status::Success);
  ASSERT_EQ(Send(stream, "behind it"), Status::Success);
  pool::RunAll();
  EXPECT_THAT(DataOf(peer->Take()), ElementsAre(std::string(256 - 68, 'a')));
  ASSERT_EQ(Send(stream, "sent since"), Status::Success);
  peer->Consume();
  EXPECT_THAT(DataOf(peer->Take()), ElementsAre("bc", "behind it", "sent since"));
}

// A reader refuses it, and that is the peer's to say.
TEST_F(SharedLink, PostsATransactionOfNothingWhereNoBlockFits) {
  Connect(28 + 40);
  ASSERT_EQ(Send(stream, "x"), Status::Success);
  pool::RunAll();
  for (const std::uint64_t trxSeqNo : {1u, 2u}) {
    const Received received = peer->Take();
    EXPECT_EQ(received.trxSize, 28u);
    EXPECT_THAT(received.blocks, IsEmpty());
    EXPECT_EQ(received.trxSeqNo, trxSeqNo);
    EXPECT_EQ(link->Unsent(), 1u);
    peer->Consume();
  }
  EXPECT_THAT(completed, IsEmpty());
}

TEST_F(SharedLink, SendsByteForByteWhereOneFits) {
  Connect(28 + 40 + 1);
  ASSERT_EQ(Send(stream, "xy"), Status::Success);
  pool::RunAll();
  EXPECT_THAT(DataOf(peer->Take()), ElementsAre("x"));
  peer->Consume();
  EXPECT_THAT(DataOf(peer->Take()), ElementsAre("y"));
  EXPECT_THAT(completed, ElementsAre(Status::Success));
}

}  // namespace
}  // namespace streams
