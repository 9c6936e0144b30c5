#include <functional>
#include <string>
#include <vector>

#include "lib/ipc/ipclib/linkConnector.h"
#include "tests/streams/streamFixture.h"

namespace streams {
namespace {

// Stands in for the way to a service.
struct ConnectorStub {
  bool exists = false;
  Status answers = Status::Success;
  std::uint64_t remoteStreamId = kPeerId;
  std::vector<StreamFlags> asked = {};
  std::function<void(LmIpclibStream&)> meanwhile = [](LmIpclibStream&) {};
};
ConnectorStub connectorStub;

class Connector final : public LmIpclibLinkConnector {
 public:
  LmIpcStatusCode connect(const std::shared_ptr<Executor>&, const std::shared_ptr<LmIpclibStream>& stream,
                          const std::shared_ptr<LmIpclibLink>&, unsigned&) override {
    connectorStub.meanwhile(*stream);
    stream->setRemote(5, connectorStub.remoteStreamId, StreamFlags(0x00420042));
    return connectorStub.answers;
  }
};

}  // namespace
}  // namespace streams

namespace quill::ipc {

std::unique_ptr<LmIpclibLinkConnector> createLinkConnector(StreamFlags flags) {
  streams::connectorStub.asked.push_back(flags);
  if (!streams::connectorStub.exists) return nullptr;
  return std::make_unique<streams::Connector>();
}

}  // namespace quill::ipc

namespace streams {
namespace {

using StreamConnect = StreamFixture;
using StreamAccept = StreamFixture;
using StreamComplete = StreamFixture;

TEST_F(StreamConnect, DrawsIdsThatTellStreamsApart) {
  const auto first = NewInitiator();
  const auto second = NewInitiator();
  EXPECT_EQ(first->streamId() >> 56, 0x53u);
  EXPECT_EQ(second->streamId() >> 56, 0x53u);
  EXPECT_NE(first->streamId() & 0xFFFFFFFF, second->streamId() & 0xFFFFFFFF);
  EXPECT_NE(first->streamId() & 0xFFFFFFFF, 0u);
  EXPECT_EQ(first->state(), State::Init);
  EXPECT_EQ(first->remoteStreamId(), 0u);
  EXPECT_EQ(first->streamName(), u"calc");
  EXPECT_EQ(first->endpoint(), kEndpoint);
}

TEST_F(StreamConnect, WithoutAnExecutorIsRefusedAndChangesNothing) {
  const auto lonely =
      std::make_shared<LmIpclibStream>(kEndpoint, u"calc", StreamFlags(), std::weak_ptr<Executor>(), heard.Callback());
  EXPECT_EQ(lonely->connect({}, link, nullptr), Status::InvalidState);
  EXPECT_EQ(lonely->state(), State::Init);
}

TEST_F(StreamConnect, WithoutALinkClosesTheStream) {
  stream = NewInitiator();
  EXPECT_EQ(stream->connect({}, nullptr, nullptr), Status::InvalidParam);
  EXPECT_EQ(stream->state(), State::Closed);
}

TEST_F(StreamConnect, IsRefusedInEveryStateButInit) {
  Connect();
  EXPECT_EQ(stream->connect({}, link, nullptr), Status::InvalidState);
  EXPECT_EQ(stream->state(), State::Connected);
  stream->shutdown();
  EXPECT_EQ(stream->connect({}, link, nullptr), Status::InvalidState);
}

TEST_F(StreamConnect, OnALinkThatTakesNoStreamsFailsWithItsStatus) {
  link->Refuse();
  stream = NewInitiator();
  EXPECT_EQ(stream->connect({}, link, nullptr), Status::InvalidState);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(link->Streams(), 0u);
}

TEST_F(StreamConnect, OnALinkThatTakesNoMessagesFailsWithItsStatusAndLeavesTheLink) {
  const auto unconnected = std::make_shared<Carrier>();
  stream = NewInitiator();
  EXPECT_EQ(stream->connect({}, unconnected, nullptr), Status::InvalidState);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(unconnected->Streams(), 0u);
}

TEST_F(StreamConnect, SendsAnOpenWithTheNameAndTheFlagsThatTravel) {
  auto status = BeginConnect();
  const auto sent = link->TakeSent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0]->msgType(), Type::Open);
  EXPECT_EQ(sent[0]->flags(), 0x00010000u);
  EXPECT_EQ(sent[0]->status(), Status::Success);
  EXPECT_EQ(sent[0]->srcStreamId(), stream->streamId());
  EXPECT_EQ(sent[0]->destStreamId(), 0u);
  EXPECT_EQ(TextOf(*sent[0]), std::string("\x08\0\0\0c\0a\0l\0c\0", 12));
  EXPECT_EQ(stream->state(), State::Connecting);
  EXPECT_EQ(link->Stream(stream->streamId()), stream);
  Answer();
  EXPECT_EQ(status.get(), Status::Success);
}

TEST_F(StreamConnect, IsDoneWhenThePeerHasAcknowledged) {
  auto status = BeginConnect();
  Answer(Status::Success, 0x00800000);
  EXPECT_EQ(status.get(), Status::Success);
  EXPECT_EQ(stream->state(), State::Connected);
  EXPECT_EQ(stream->remoteStreamId(), kPeerId);
  EXPECT_EQ(stream->flags(), StreamFlags(0x00810009)) << "the high half of the peer's flags joins our own";
}

TEST_F(StreamConnect, ThatThePeerRefusesEndsWithThePeersStatusAndNoShutdown) {
  auto status = BeginConnect();
  link->sent.clear();
  Answer(Status::AccessDenied);
  EXPECT_EQ(status.get(), Status::AccessDenied);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(stream->remoteStreamId(), 0u);
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
  EXPECT_EQ(link->Streams(), 0u);
}

TEST_F(StreamConnect, WhoseOpenIsGivenUpEndsWithThatStatus) {
  auto status = BeginConnect();
  link->TakeSent().front()->sendComplete(Status::StreamClosed);
  EXPECT_EQ(status.get(), Status::StreamClosed);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(link->Streams(), 0u);
}

TEST_F(StreamConnect, GoesOnWaitingWhenItsOpenIsOnItsWay) {
  auto status = BeginConnect();
  link->TakeSent().front()->sendComplete(Status::Success);
  EXPECT_EQ(stream->state(), State::Connecting);
  Answer();
  EXPECT_EQ(status.get(), Status::Success);
}

TEST_F(StreamConnect, EndsWhenTheStreamIsClosedMeanwhile) {
  auto status = BeginConnect();
  link->sent.clear();
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(status.get(), Status::StreamClosed);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
}

TEST_F(StreamConnect, EndsWhenTheStreamIsShutDownMeanwhile) {
  auto status = BeginConnect();
  stream->shutdown();
  EXPECT_EQ(status.get(), Status::StreamClosed);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(link->Streams(), 0u);
}

// Holds the thread that connects, where its handshake begins ('>') or once it is over ('<').
class HoldsTheConnect final : public quill::log::Sink {
 public:
  explicit HoldsTheConnect(char where) : where_(where) {}
  void Write(std::int32_t, const quill::log::Location& location, std::string_view text) override {
    if (std::string_view(location.function) != "connectExistingLink" || !text.starts_with(where_)) return;
    held.set_value();
    released.get_future().wait();
  }
  std::promise<void> held, released;

 private:
  const char where_;
};

TEST_F(StreamConnect, SendsNoOpenForAStreamThatWasShutDownBefore) {
  const auto holds = std::make_shared<HoldsTheConnect>('>');
  ipcTrace->attach(holds);
  stream = NewInitiator();
  auto status = std::async(std::launch::async, [this] { return stream->connect({}, link, nullptr); });
  holds->held.get_future().wait();
  stream->shutdown();
  holds->released.set_value();
  EXPECT_EQ(status.get(), Status::StreamClosed);
  ipcTrace->removeAllSinks();
  EXPECT_EQ(stream->state(), State::Closed);
  pool::RunAll();
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
  EXPECT_EQ(link->Streams(), 0u);
}

class StreamShutDownBehindTheAcknowledgement : public StreamFixture {
 public:
  // The peer has agreed, and before `connect` returns the stream is shut down.
  void ConnectAndShutDown() {
    const auto holds = std::make_shared<HoldsTheConnect>('<');
    ipcTrace->attach(holds);
    auto status = BeginConnect();
    link->sent.clear();
    Answer();
    holds->held.get_future().wait();
    stream->shutdown();
    holds->released.set_value();
    EXPECT_EQ(status.get(), Status::StreamClosed);
    ipcTrace->removeAllSinks();
    pool::RunAll();
  }
};

TEST_F(StreamShutDownBehindTheAcknowledgement, TellsThePeerThatItGivesUp) {
  const auto other = NewAcceptor();
  ASSERT_EQ(link->addStream(other), Status::Success);
  ConnectAndShutDown();
  const auto sent = link->TakeSent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0]->msgType(), Type::Shutdown);
  EXPECT_EQ(sent[0]->destStreamId(), kPeerId);
  EXPECT_EQ(link->removeStream(other), Status::Success);
}

TEST_F(StreamShutDownBehindTheAcknowledgement, CannotTellThePeerWhenTheLinkWentWithIt) {
  ConnectAndShutDown();
  EXPECT_EQ(link->state(), LmIpclibLink::State::Closed);
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
}

TEST_F(StreamConnect, OnANewLinkWithoutAConnectorFindsNothing) {
  connectorStub = {};
  const auto unconnected = std::make_shared<Carrier>();
  ASSERT_EQ(unconnected->connecting(), Status::Success);
  auto waits = std::async(std::launch::async, [&] { return unconnected->connectWait(); });
  stream = NewInitiator();
  EXPECT_EQ(stream->connect(StreamFlags(1), nullptr, unconnected), Status::NotFound);
  EXPECT_THAT(connectorStub.asked, ElementsAre(StreamFlags(1)));
  EXPECT_EQ(unconnected->faults, 1);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(waits.get(), Status::InvalidState) << "whoever waits for the link is told";
}

TEST_F(StreamConnect, OnANewLinkConnectsItAndStartsIt) {
  connectorStub = {.exists = true};
  LetGo();
  link = std::make_shared<Carrier>();
  ASSERT_EQ(link->connecting(), Status::Success);
  auto waits = std::async(std::launch::async, [&] { return link->connectWait(); });
  stream = NewInitiator();
  EXPECT_EQ(stream->connect(StreamFlags(9), nullptr, link), Status::Success);
  EXPECT_EQ(stream->state(), State::Connected);
  EXPECT_EQ(stream->remoteStreamId(), kPeerId);
  EXPECT_EQ(stream->flags(), StreamFlags(0x00430009));
  EXPECT_EQ(link->state(), LmIpclibLink::State::Connected);
  EXPECT_EQ(waits.get(), Status::Success);
}

TEST_F(StreamConnect, OnANewLinkFailsWithTheConnectorsStatus) {
  connectorStub = {.exists = true, .answers = Status::AccessDenied, .remoteStreamId = 0};
  LetGo();
  link = std::make_shared<Carrier>();
  ASSERT_EQ(link->connecting(), Status::Success);
  stream = NewInitiator();
  EXPECT_EQ(stream->connect(StreamFlags(9), nullptr, link), Status::AccessDenied);
  EXPECT_EQ(link->faults, 1);
  EXPECT_EQ(stream->state(), State::Closed);
}

TEST_F(StreamConnect, OnANewLinkThatTakesNoStreamsFailsWithItsStatusAndAsksForNoConnector) {
  connectorStub = {.exists = true};
  link->Refuse();
  stream = NewInitiator();
  EXPECT_EQ(stream->connect(StreamFlags(9), nullptr, link), Status::InvalidState);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(connectorStub.asked, IsEmpty());
}

TEST_F(StreamConnect, OnANewLinkCannotBeClosedMeanwhileButShutDown) {
  LetGo();
  for (const bool shutsDown : {false, true}) {
    link = std::make_shared<Carrier>();
    ASSERT_EQ(link->connecting(), Status::Success);
    connectorStub = {.exists = true, .meanwhile = [shutsDown](LmIpclibStream& connecting) {
                       EXPECT_EQ(connecting.state(), State::Connecting);
                       EXPECT_EQ(connecting.close(kNoLimit), Status::InvalidState) << "there is no handshake to end";
                       EXPECT_EQ(connecting.state(), State::Connecting);
                       if (shutsDown) connecting.shutdown();
                     }};
    stream = NewInitiator();
    EXPECT_EQ(stream->connect(StreamFlags(9), nullptr, link), shutsDown ? Status::StreamClosed : Status::Success);
    pool::RunAll();
    const std::vector<Type> told(shutsDown ? 1 : 0, Type::Shutdown);
    EXPECT_EQ(link->TakeSentTypes(), told) << "the peer, who is known, is told";
    LetGo();
  }
  link = Carrier::Connected(executor);
}

TEST_F(StreamConnect, OnANewLinkThatDoesNotStartFailsWithItsStatus) {
  connectorStub = {.exists = true};
  LetGo();
  link = std::make_shared<Carrier>();
  link->failsToStart = true;
  ASSERT_EQ(link->connecting(), Status::Success);
  stream = NewInitiator();
  EXPECT_EQ(stream->connect(StreamFlags(9), nullptr, link), Status::OutOfMemory);
  EXPECT_EQ(link->faults, 0) << "a link sees to its own start";
}

TEST_F(StreamComplete, IsRefusedBeforeTheStreamIsConnected) {
  stream = NewInitiator();
  EXPECT_EQ(stream->completeConnect(), Status::InvalidState);
  auto status = BeginConnect();
  EXPECT_EQ(stream->completeConnect(), Status::InvalidState);
  Answer();
  EXPECT_EQ(status.get(), Status::Success);
}

TEST_F(StreamComplete, TwiceIsRefusedAndTheStreamGoesOnWorking) {
  Connect();
  EXPECT_EQ(stream->completeConnect(), Status::InvalidState);
  Hear(Type::Msg, "still here");
  EXPECT_THAT(heard.texts, ElementsAre("still here"));
}

TEST_F(StreamComplete, LetsFlowWhatHasGathered) {
  auto status = BeginConnect();
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  Hear(Type::Msg, "one");
  Hear(Type::Msg, "two");
  EXPECT_THAT(heard.texts, IsEmpty());
  EXPECT_EQ(stream->completeConnect(), Status::Success);
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("one", "two"));
}

TEST_F(StreamComplete, WithoutAnExecutorClosesTheStream) {
  auto status = BeginConnect();
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  executor.reset();
  EXPECT_EQ(stream->completeConnect(), Status::Unexpected);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(link->removeStream(stream), Status::Success);
}

TEST_F(StreamAccept, TakesTheStreamOnAndAddsAllOfTheFlags) {
  stream = NewAcceptor();
  EXPECT_EQ(stream->accept(StreamFlags(0x00020003), heard.Callback()), Status::Success);
  EXPECT_EQ(stream->state(), State::Connected);
  EXPECT_EQ(stream->flags(), StreamFlags(0x00030003));
  pool::RunAll();
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
  stream->shutdown();
}

TEST_F(StreamAccept, TellsThePeerWhenItIsAskedTo) {
  stream = NewAcceptor(StreamFlags(0x00030001));
  ASSERT_EQ(link->addStream(stream), Status::Success);
  stream->setOnAcceptSendOpenAck(true);
  EXPECT_EQ(stream->accept({}, heard.Callback()), Status::Success);
  pool::RunAll();
  const auto sent = link->TakeSent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0]->msgType(), Type::OpenAck);
  EXPECT_EQ(sent[0]->status(), Status::Success);
  EXPECT_EQ(sent[0]->flags(), 0x00030000u);
  EXPECT_EQ(sent[0]->srcStreamId(), stream->streamId());
  EXPECT_EQ(sent[0]->destStreamId(), kPeerId);
  EXPECT_EQ(sent[0]->size(), 0u);
}

TEST_F(StreamAccept, TakesTheStreamOnThoughThePeerCannotBeTold) {
  stream = NewAcceptor();
  stream->setOnAcceptSendOpenAck(true);
  link->Refuse();
  EXPECT_EQ(stream->accept({}, heard.Callback()), Status::Success);
  EXPECT_EQ(stream->state(), State::Connected);
  stream->shutdown();
}

TEST_F(StreamAccept, IsRefusedInEveryStateButInit) {
  Accept();
  Receiver dropped;
  EXPECT_EQ(stream->accept({}, dropped.Callback()), Status::InvalidState);
  Hear(Type::Msg, "for the first");
  EXPECT_THAT(heard.texts, ElementsAre("for the first"));
  EXPECT_THAT(dropped.texts, IsEmpty());
  stream->shutdown();
  EXPECT_EQ(stream->accept({}, dropped.Callback()), Status::InvalidState);
}

TEST_F(StreamAccept, WithoutAnExecutorClosesTheStream) {
  stream = NewAcceptor();
  executor.reset();
  EXPECT_EQ(stream->accept({}, heard.Callback()), Status::Unexpected);
  EXPECT_EQ(stream->state(), State::Closed);
}

}  // namespace
}  // namespace streams
