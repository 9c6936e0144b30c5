#include <functional>
#include <vector>

#include "lib/ipc/ipclib/lineSink.h"
#include "tests/ipc/failingMalloc.h"
#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

TEST_F(SharedLink, IsConnectedByItsStartAndTellsThePeerThatItIsThere) {
  peer = std::make_unique<RawPeer>();
  link = peer->Connect(executor);
  EXPECT_EQ(link->state(), LinkState::Connected);
  EXPECT_EQ(link->linkValue(), 7u);
  EXPECT_EQ(link->flags(), 0x00018009u) << "the high half is the peer's";
  EXPECT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  EXPECT_FALSE(peer->HasAnything());
}

TEST_F(SharedLink, IsAttachedOnlyWhileItConnects) {
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  EXPECT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::InvalidState);
  EXPECT_EQ(link->state(), LinkState::Init);
}

TEST_F(SharedLink, ThatCannotBeAttachedIsInError) {
  peer = std::make_unique<RawPeer>();
  for (const bool sending : {true, false}) {
    link = std::make_shared<OpenLink>();
    ASSERT_EQ(link->connecting(), Status::Success);
    LmIpclibLinkChannelResourceWin recvResources(false);
    LmIpclibLinkChannelResourceWin sendResources(false);
    peer->toLink.Describe(recvResources);
    peer->fromLink.Describe(sendResources);
    (sending ? sendResources : recvResources).mapping = {};
    unsigned errorCode = 0;
    EXPECT_EQ(link->attach(0, 0, 0, 4096, recvResources, sendResources, platform::GetCurrentProcess(), 0, errorCode),
              Status::Unexpected);
    EXPECT_NE(errorCode, 0u);
    EXPECT_EQ(link->state(), LinkState::Error);
    EXPECT_EQ(link->start(executor, errorCode), Status::InvalidState);
    EXPECT_EQ(link->state(), LinkState::Closed);
  }
}

TEST_F(SharedLink, WithoutAPeerProcessIsInError) {
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  ASSERT_EQ(link->connecting(), Status::Success);
  EXPECT_EQ(Attach(*link, peer->toLink, peer->fromLink, 4096, {}), Status::Unexpected);
  EXPECT_EQ(link->state(), LinkState::Error);
}

TEST_F(SharedLink, KeepsWhatIsSentUntilThePeerIsThereAndSendsItInTheOrderOfTheCalls) {
  peer = std::make_unique<RawPeer>();
  link = peer->Connect(executor);
  stream = NewStream();
  for (const char* text : {"one", "two", "three"}) ASSERT_EQ(Send(stream, text), Status::Success);
  pool::RunAll();
  EXPECT_FALSE(peer->HasAnything());
  EXPECT_EQ(link->Unsent(), 3u);
  peer->Consume();
  const Received received = peer->Take();
  ASSERT_EQ(received.blocks.size(), 3u);
  EXPECT_EQ(received.blocks[0].data, "one");
  EXPECT_EQ(received.blocks[1].data, "two");
  EXPECT_EQ(received.blocks[2].data, "three");
  EXPECT_EQ(received.trxSeqNo, 1u);
  EXPECT_EQ(received.trxSize, 28 + 3 * 40 + 11u);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::Success, Status::Success));
}

TEST_F(SharedLink, SendsNothingMoreUntilThePeerHasTakenTheLast) {
  Connect();
  ASSERT_EQ(Send(stream, "one"), Status::Success);
  pool::RunAll();
  EXPECT_EQ(peer->Take().blocks.size(), 1u);
  ASSERT_EQ(Send(stream, "two"), Status::Success);
  ASSERT_EQ(Send(stream, "three"), Status::Success);
  pool::RunAll();
  EXPECT_FALSE(peer->HasAnything());
  peer->Consume();
  const Received received = peer->Take();
  EXPECT_EQ(received.blocks.size(), 2u);
  EXPECT_EQ(received.trxSeqNo, 2u);
}

TEST_F(SharedLink, PutsAMessageThatJustFitsIntoOneBlockAndOneByteMoreIntoTwoTransactions) {
  Connect(256);
  const std::string fits(256 - 68, 'a');
  ASSERT_EQ(Send(stream, fits), Status::Success);
  pool::RunAll();
  Received received = peer->Take();
  ASSERT_EQ(received.blocks.size(), 1u);
  EXPECT_EQ(received.blocks[0].data, fits);
  EXPECT_EQ(received.blocks[0].header.flags, kFirstBlock | kLastBlock);
  EXPECT_EQ(received.trxSize, 256u);

  const std::string more = fits + "b";
  ASSERT_EQ(Send(stream, more), Status::Success);
  peer->Consume();
  received = peer->Take();
  ASSERT_EQ(received.blocks.size(), 1u);
  EXPECT_EQ(received.blocks[0].header.flags, kFirstBlock);
  EXPECT_EQ(received.blocks[0].header.totalSize, more.size());
  EXPECT_EQ(completed.size(), 1u) << "the second is not all written";
  peer->Consume();
  received = peer->Take();
  ASSERT_EQ(received.blocks.size(), 1u);
  EXPECT_EQ(received.blocks[0].header.flags, kLastBlock);
  EXPECT_EQ(received.blocks[0].header.blockSize, 36 + 1u);
  EXPECT_EQ(received.blocks[0].data, "b");
  EXPECT_EQ(completed.size(), 2u);
}

TEST_F(SharedLink, BeginsABlockWhereAByteFitsAndNotWhereNoneDoes) {
  for (const std::uint32_t room : {41u, 40u}) {
    Connect(256);
    ASSERT_EQ(Send(stream, std::string(256 - 28 - 40 - room, 'a')), Status::Success);
    ASSERT_EQ(Send(stream, "xy"), Status::Success);
    pool::RunAll();
    const Received received = peer->Take();
    ASSERT_EQ(received.blocks.size(), room == 41 ? 2u : 1u);
    if (room == 41) {
      EXPECT_EQ(received.blocks[1].data, "x");
      EXPECT_EQ(received.blocks[1].header.flags, kFirstBlock);
    }
    peer->Consume();
    EXPECT_EQ(peer->Take().blocks.at(0).data, room == 41 ? "y" : "xy");
    link->shutdown();
    pool::RunAll();
  }
}

TEST_F(SharedLink, WritesNothingIntoABlockThatHoldsNoHeader) {
  Connect(27);
  ASSERT_EQ(Send(stream, "one"), Status::Success);
  pool::RunAll();
  EXPECT_THAT(peer->fromLink.View(), testing::Each(std::byte{0}));
  EXPECT_EQ(link->state(), LinkState::Connected);
  link->shutdown();
  pool::RunAll();
  EXPECT_THAT(completed, ElementsAre(Status::StreamClosed));
}

TEST_F(SharedLink, DeliversEachBlockToItsStreamAndTellsThePeer) {
  Connect();
  Receiver& other = others.emplace_back();
  const auto second = NewStream(0x5300000000000BB0, &other);
  ASSERT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  peer->Put(Of({For(stream, "a"), For(second, "b", 0x5300000000000BB0), For(stream, "c")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("a", "c"));
  EXPECT_THAT(other.texts, ElementsAre("b"));
  EXPECT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  peer->Put(Of({For(second, "d", 0x5300000000000BB0)}), 2);
  EXPECT_THAT(other.texts, ElementsAre("b", "d"));
}

TEST_F(SharedLink, DeliversToItsStreamsInTheOrderOfTheirIds) {
  Connect();
  Receiver& other = others.emplace_back();
  const auto second = NewStream(0x5300000000000BB0, &other);
  ASSERT_LT(stream->streamId(), second->streamId());
  std::vector<std::string> order;
  heard.then = [&](const LmIpclibMsg& message) { order.push_back(TextOf(message)); };
  other.then = heard.then;
  peer->Put(Of({For(second, "later", 0x5300000000000BB0), For(stream, "earlier")}), 1);
  EXPECT_THAT(order, ElementsAre("earlier", "later"));
  heard.then = other.then = nullptr;
}

TEST_F(SharedLink, HasSixTasksAndItsControlStreamOneLikeEveryStream) {
  peer = std::make_unique<RawPeer>();
  link = peer->Connect(executor);
  EXPECT_EQ(pool::Objects(), 6 + 1u);
  std::vector<std::shared_ptr<LmIpclibStream>> many;
  for (std::size_t i = 1; i <= 100; ++i) {
    many.push_back(NewStream(kPeerId + i));
    EXPECT_EQ(pool::Objects(), 6 + 1 + i);
  }
}

struct Fault {
  const char* tells;
  std::function<void(RawTransaction&)> breaks;
  std::uint32_t trxSeqNo = 1;
};

TEST_F(SharedLink, IsEndedByAFaultyTransaction) {
  const std::vector<Fault> faults = {
      {"a wrong sum", [](RawTransaction& t) { t.bytes[30] ^= std::byte{1}; }},
      {"a size of 27", [](RawTransaction& t) { t.Seal(27, 1, 1); }},
      {"a size of 63", [](RawTransaction& t) { t.Seal(63, 1, 1); }},
      {"a size beyond the block", [](RawTransaction& t) { t.Put32(20, 4097); }},
      {"a size of 4 GiB", [](RawTransaction& t) { t.Put32(20, 0xFFFFFFFF); }},
      {"no blocks", [](RawTransaction& t) { t.Seal(static_cast<std::uint32_t>(t.bytes.size()), 0, 1); }},
      {"a number that is not the next",
       [](RawTransaction& t) { t.Seal(static_cast<std::uint32_t>(t.bytes.size()), 1, 2); }},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.tells);
    Connect();
    heard.texts.clear();
    RawTransaction transaction = Of({For(stream, std::string(30, 'x'))});
    fault.breaks(transaction);
    peer->PutBytes(transaction.bytes);
    ExpectFault();
  }
}

TEST_F(SharedLink, KeepsWhatItHasTakenInAheadOfAFault) {
  Connect();
  RawTransaction transaction = Of({For(stream, "ahead")});
  transaction.Seal(static_cast<std::uint32_t>(transaction.bytes.size()), 2, 1);
  peer->PutBytes(transaction.bytes);
  EXPECT_EQ(link->state(), LinkState::Closed) << "there is only one block";
  EXPECT_THAT(heard.texts, ElementsAre("ahead", "<end>"));
}

TEST_F(SharedLink, IsEndedByABlockThatDoesNotFollow) {
  const std::vector<std::pair<const char*, std::function<void(RawBlock&)>>> faults = {
      {"a Close in two parts", [](RawBlock& b) { b = {.type = 3, .flags = kFirstBlock, .data = ""}; }},
      {"an Open to a stream", [](RawBlock& b) { b.type = 1; }},
      {"a Msg of nothing", [](RawBlock& b) { b.data.clear(); }},
      {"a Close with data", [](RawBlock& b) { b.type = 3; }},
      {"sizes that disagree", [](RawBlock& b) { b.blockSizeOff = 1; }},
      {"data beyond the transaction", [](RawBlock& b) { b.dataSizeOff = b.blockSizeOff = 100; }},
      {"a second part of nothing", [](RawBlock& b) { b.flags = kLastBlock; }},
  };
  for (const auto& [tells, breaks] : faults) {
    SCOPED_TRACE(tells);
    Connect();
    heard.texts.clear();
    RawBlock block = For(stream, "data that is long enough for a block");
    breaks(block);
    peer->Put(Of({block}), 1);
    ExpectFault();
  }
}

TEST_F(SharedLink, IsEndedByAMessageThatThereIsNoRoomForAndTheProcessIsNot) {
  Connect();
  const ipcTests::NoRoomFor noRoom(0xFFFFFFFF);
  RawTransaction transaction;
  RawBlock block = For(stream, "x");
  block.flags = kFirstBlock;
  transaction.Add(block);
  transaction.Put32(28 + 36, 0xFFFFFFFF);  // What the message claims to be.
  peer->Put(transaction, 1);
  ExpectFault();
}

TEST_F(SharedLink, CountsTheTransactionThatItRefuses) {
  Connect();
  peer->Put(Of({For(stream, "one")}), 1);
  peer->Put(Of({For(stream, "three")}), 3);
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("one", "<end>"));
}

TEST_F(SharedLink, DropsABlockForNobodyAndDeliversThoseBehindIt) {
  Connect();
  RawBlock nobody = For(stream, "lost");
  nobody.destination = 0x53000000DEADDEAD;
  peer->Put(Of({nobody, For(stream, "heard")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("heard"));
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(SharedLink, DropsABlockFromAnotherPeerThanTheStreams) {
  Connect();
  peer->Put(Of({For(stream, "forged", kPeerId + 1), For(stream, "true")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("true"));
}

TEST_F(SharedLink, EndsItsWalkAtABlockOfNoTypeWithoutAFault) {
  Connect();
  RawBlock unknown = For(stream, "unknown");
  unknown.type = 7;
  peer->Put(Of({For(stream, "before"), unknown, For(stream, "behind")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("before"));
  EXPECT_EQ(link->state(), LinkState::Connected);
  peer->Put(Of({For(stream, "next")}), 2);
  EXPECT_THAT(heard.texts, ElementsAre("before", "next"));
}

TEST_F(SharedLink, LetsAStreamThatTakesNothingHarmNoOther) {
  Connect();
  const auto refusing = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(), 7, kPeerId, executor, link);
  ASSERT_EQ(link->addStream(refusing), Status::Success);  // In Init: nobody has accepted it.
  peer->Put(Of({For(refusing, "refused"), For(stream, "taken")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("taken"));
  EXPECT_EQ(link->state(), LinkState::Connected);
  EXPECT_EQ(link->removeStream(refusing), Status::Success);
}

TEST_F(SharedLink, RefusesAnOpenWithAnAnswerForWantOfAListener) {
  Connect();
  const RawBlock open{.type = 1, .data = writeOpenPayload(u"calc"), .source = 0x5300000000000CC0, .destination = 0};
  peer->Put(Of({open}), 1);
  const Received received = peer->Take();
  ASSERT_EQ(received.blocks.size(), 1u);
  EXPECT_EQ(received.blocks[0].header.msgType, Type::OpenAck);
  EXPECT_EQ(received.blocks[0].header.status, static_cast<std::uint32_t>(Status::NotFound));
  EXPECT_EQ(received.blocks[0].header.destStreamId, 0x5300000000000CC0u);
  EXPECT_EQ(link->state(), LinkState::Connected);
}

// As the control stream does when the listener refuses the stream at that moment.
TEST_F(SharedLink, WhoseLastStreamIsErasedWhileItEndsIsClosed) {
  Connect();
  ASSERT_EQ(Send(stream, "on its way"), Status::Success);
  pool::RunAll();
  ASSERT_TRUE(stream->send({}, 1, "x", [&](Status, const std::shared_ptr<LmIpclibMsg>&) {
    EXPECT_EQ(link->eraseStream(stream), Status::Success);
  }));
  link->shutdown();
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
}

TEST_F(SharedLink, IsEndedByAMessageToItsControlStreamAndTheProcessIsNot) {
  Connect();
  peer->Put(Of({RawBlock{.destination = 0}}), 1);
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
}

TEST_F(SharedLink, ClosesWithItsLastStreamAndTellsThePeer) {
  Connect();
  stream->shutdown();
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_TRUE(TakeSignal(peer->toLink.stop));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
}

TEST_F(SharedLink, ClosesItsStreamsWhenItIsClosed) {
  Connect();
  Receiver& other = others.emplace_back();
  const auto second = NewStream(kPeerId, &other);
  link->close();
  EXPECT_EQ(link->state(), LinkState::Closing);
  link->close();
  EXPECT_EQ(link->state(), LinkState::Closing) << "that does nothing more";
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_THAT(other.texts, ElementsAre("<end>"));
  EXPECT_EQ(link->state(), LinkState::Closed);
  link->shutdown();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
}

TEST_F(SharedLink, SendsWhatIsQueuedBeforeItCloses) {
  CloseWithOneUnsent();
  EXPECT_EQ(link->Streams(), 0u);
  EXPECT_EQ(peer->Take().blocks.size(), 1u);
  peer->Consume();
  EXPECT_EQ(peer->Take().blocks.at(0).data, "two");
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_TRUE(TakeSignal(peer->toLink.stop));
}

TEST_F(SharedLink, WhosePeerStopsGivesUpWhatIsUnsentAndDoesNotAnswer) {
  Connect();
  ASSERT_EQ(Send(stream, "one"), Status::Success);
  pool::RunAll();
  ASSERT_EQ(Send(stream, "two"), Status::Success);
  platform::SetEvent(peer->fromLink.stop.get());
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::StreamClosed));
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_FALSE(TakeSignal(peer->toLink.stop));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
}

TEST_F(SharedLink, ThatClosesWhileItsPeerStopsGivesUpWhatIsUnsent) {
  CloseWithOneUnsent();
  platform::SetEvent(peer->fromLink.stop.get());
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::StreamClosed));
}

TEST_F(SharedLink, WhosePeerFailsShutsItsStreamsDownAndDoesNotAnswer) {
  Connect();
  ASSERT_EQ(Send(stream, "one"), Status::Success);
  pool::RunAll();
  ASSERT_EQ(Send(stream, "two"), Status::Success);
  platform::SetEvent(peer->fromLink.error.get());
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::StreamClosed));
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
  EXPECT_FALSE(TakeSignal(peer->toLink.stop));
}

TEST_F(SharedLink, ThatFailsWhileItClosesGivesUpWhatIsUnsent) {
  CloseWithOneUnsent();
  link->shutdown();
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::StreamClosed));
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
}

TEST_F(SharedLink, ThatHasFailedTakesNothingUntilItsLastStreamLeavesAndThenNothing) {
  Connect();
  link->shutdown();
  for (const LinkState state : {LinkState::ShuttingDown, LinkState::Closed}) {
    EXPECT_EQ(link->state(), state);
    EXPECT_EQ(link->Streams(), state == LinkState::ShuttingDown ? 1u : 0u) << "its user has not heard the end";
    const auto late = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(), 7, kPeerId, executor, link);
    EXPECT_EQ(link->addStream(late), Status::InvalidState);
    EXPECT_EQ(link->send(std::make_shared<LmIpclibMsg>(Type::Shutdown, 0, Status::Success, nullptr, 1, 2, 0, nullptr,
                                                       nullptr)),
              Status::InvalidState);
    EXPECT_EQ(link->connecting(), Status::InvalidState);
    EXPECT_EQ(link->connectWait(), Status::InvalidState);
    pool::RunAll();
  }
}

TEST_F(SharedLink, TellsThatItFailsBeforeItsStreamsHear) {
  peer = std::make_unique<RawPeer>();
  std::vector<std::string> told;
  link = std::make_shared<OpenLink>(
      [&](LmIpclibLink& which) {
        told.emplace_back(NameOf(which.state()));
        EXPECT_EQ(stream->state(), State::Connected);
      },
      [&](LmIpclibLink& which) { told.emplace_back(NameOf(which.state())); });
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::Success);
  unsigned errorCode = 0;
  ASSERT_EQ(link->start(executor, errorCode), Status::Success);
  stream = NewStream();
  link->shutdown();
  EXPECT_THAT(told, ElementsAre("ShuttingDown"));
  pool::RunAll();
  link->shutdown();
  EXPECT_THAT(told, ElementsAre("ShuttingDown", "Closed"));
}

// Calls into the link when it is let go of, as what a user's callback keeps may do.
class Keepsake {
 public:
  Keepsake(std::weak_ptr<OpenLink> link, int& gone) : link_(std::move(link)), gone_(gone) {}
  Keepsake(const Keepsake&) = delete;
  Keepsake& operator=(const Keepsake&) = delete;
  ~Keepsake() {
    if (const auto link = link_.lock()) {
      EXPECT_EQ(link->getLinkListener(), nullptr);
    }
    ++gone_;
  }

 private:
  const std::weak_ptr<OpenLink> link_;
  int& gone_;
};

TEST_F(SharedLink, LetsGoOfWhatCompletionsKeepWithNoLockHeld) {
  const std::string text = "text";
  for (const bool peerStops : {false, true}) {
    SCOPED_TRACE(peerStops);
    Connect();
    int gone = 0;
    int told = 0;
    const auto send = [&] {
      return stream
          ->send({}, static_cast<std::uint32_t>(text.size()), text.data(),
                 [&told, keeps = std::make_shared<Keepsake>(link, gone)](Status, const std::shared_ptr<LmIpclibMsg>&) {
                   ++told;
                 })
          .status();
    };
    ASSERT_EQ(send(), Status::Success);
    pool::RunAll();
    ASSERT_EQ(send(), Status::Success);
    link->close();
    // The stream's end is queued, so the link looks whether it may end, and may not: with its lock held.
    platform::SetEvent((peerStops ? peer->fromLink.stop : peer->fromLink.dataConsumed).get());
    ASSERT_EQ(pool::Queued(), 2u);
    pool::Run(1);
    EXPECT_EQ(told, 2);
    EXPECT_EQ(gone, 2);
    link->shutdown();
    pool::RunAll();
  }
}

TEST_F(SharedLink, TellsOnceThatItStopsAndOnceThatItHasClosed) {
  peer = std::make_unique<RawPeer>();
  std::vector<std::string> told;
  link = std::make_shared<OpenLink>(
      [&](LmIpclibLink& which) {
        EXPECT_EQ(which.state(), LinkState::Closing);
        told.emplace_back("stopping");
      },
      [&](LmIpclibLink& which) {
        EXPECT_EQ(which.state(), LinkState::Closed);
        EXPECT_EQ(which.getLinkListener(), nullptr) << "no lock is held";
        told.emplace_back("closed");
      });
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::Success);
  unsigned errorCode = 0;
  ASSERT_EQ(link->start(executor, errorCode), Status::Success);
  link->close();
  pool::RunAll();
  link->shutdown();
  link->close();
  EXPECT_THAT(told, ElementsAre("stopping", "closed"));
}

TEST_F(SharedLink, ThatFailsToStartIsClosedAndTellsThePeer) {
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::Success);
  stream = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(), executor, heard.Callback());
  unsigned errorCode = 0;
  EXPECT_EQ(link->start(nullptr, errorCode), Status::Unexpected);
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
}

}  // namespace
}  // namespace streams
