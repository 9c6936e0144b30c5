#include <stdexcept>
#include <vector>

#include "lib/ipc/ipclib/lineSink.h"
#include "tests/ipc/failingMalloc.h"
#include "tests/streams/streamFixture.h"
#include "tests/support/process.h"

namespace streams {
namespace {

using StreamBlocks = StreamFixture;
using StreamDispatch = StreamFixture;
using StreamSend = StreamFixture;

TEST_F(StreamBlocks, AreRefusedWhereNothingIsTakenIn) {
  const Block block{.data = "x"};
  stream = NewInitiator();
  EXPECT_EQ(block.To(*stream), Status::InvalidState) << "Init";
  Connect();
  BeClosedByPeer();
  EXPECT_EQ(block.To(*stream), Status::InvalidState) << "Closing, by the peer";
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(block.To(*stream), Status::InvalidState) << "Closed";
}

TEST_F(StreamBlocks, AreTakenWhileTheStreamConnectsIsConnectedAndClosesFromThisSide) {
  auto status = BeginConnect();
  EXPECT_EQ((Block{.data = "early"}).To(*stream), Status::Success);
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  ASSERT_EQ(stream->completeConnect(), Status::Success);
  EXPECT_EQ((Block{.data = "connected"}).To(*stream), Status::Success);
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ((Block{.data = "closing"}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("early", "connected", "closing"));
}

TEST_F(StreamBlocks, OfOneMessageArePutTogether) {
  Connect();
  EXPECT_EQ((Block{.flags = kFirstBlock, .data = "Hel", .totalSize = 7}).To(*stream), Status::Success);
  EXPECT_EQ((Block{.flags = 0, .data = "lo "}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(heard.texts, IsEmpty());
  EXPECT_EQ((Block{.flags = kLastBlock, .data = "you"}).To(*stream), Status::ProtocolError) << "two bytes too many";
  EXPECT_EQ((Block{.flags = kFirstBlock, .data = "Hel", .totalSize = 7}).To(*stream), Status::Success)
      << "the faulty message is gone";
  EXPECT_EQ((Block{.flags = 0, .data = "lo "}).To(*stream), Status::Success);
  EXPECT_EQ((Block{.flags = kLastBlock, .data = "!"}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("Hello !"));
}

TEST_F(StreamBlocks, OfASecondFirstKindAreRefusedAndTheOlderMessageStays) {
  Connect();
  EXPECT_EQ((Block{.flags = kFirstBlock, .data = "ol", .totalSize = 3}).To(*stream), Status::Success);
  EXPECT_EQ((Block{.data = "new"}).To(*stream), Status::ProtocolError);
  EXPECT_EQ((Block{.flags = kLastBlock, .data = "d"}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("old"));
}

TEST_F(StreamBlocks, WithoutAFirstOneAreRefused) {
  Connect();
  EXPECT_EQ((Block{.flags = 0, .data = "x"}).To(*stream), Status::ProtocolError);
  EXPECT_EQ((Block{.flags = kLastBlock, .data = "x"}).To(*stream), Status::ProtocolError);
}

TEST_F(StreamBlocks, ThatAreLargerThanTheirMessageAreRefused) {
  Connect();
  EXPECT_EQ((Block{.data = "four", .totalSize = 3}).To(*stream), Status::ProtocolError);
  EXPECT_EQ((Block{.data = "fine"}).To(*stream), Status::Success) << "nothing of it is left";
}

TEST_F(StreamBlocks, WhoseLastOneComesTooEarlyAreRefusedAndTheMessageStays) {
  Connect();
  EXPECT_EQ((Block{.data = "tw", .totalSize = 3}).To(*stream), Status::ProtocolError);
  EXPECT_EQ((Block{.flags = kLastBlock, .data = "o"}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("two"));
}

TEST_F(StreamBlocks, OfAnEmptyMessageOfThePeerAreRefused) {
  Connect();
  EXPECT_EQ((Block{.data = ""}).To(*stream), Status::ProtocolError);
}

TEST_F(StreamBlocks, OfAMessageThatThereIsNoRoomForAreRefusedAndNothingOfItIsLeft) {
  Connect();
  {
    const ipcTests::NoRoomFor noRoom(0xFFFFFFFF);
    EXPECT_EQ((Block{.flags = kFirstBlock, .data = "x", .totalSize = 0xFFFFFFFF}).To(*stream), Status::ProtocolError);
  }
  Hear(Type::Msg, "next");
  EXPECT_THAT(heard.texts, ElementsAre("next"));
}

struct OpenPayload {
  const char* tells;
  std::string_view bytes;
};

TEST_F(StreamBlocks, OfAnOpenWithoutAProperNameAreRefused) {
  using namespace std::string_view_literals;
  for (const OpenPayload& payload : {OpenPayload{"four bytes", "\2\0\0\0"sv},
                                     {"a name of one byte", "\1\0\0\0x"sv},
                                     {"a name of no byte", "\0\0\0\0x"sv},
                                     {"a name that overruns", "\4\0\0\0ab"sv},
                                     {"a name of almost 4 GiB", "\xFF\xFF\xFF\xFFx\0y\0"sv}}) {
    Renew();
    const auto control = link->Control();
    EXPECT_EQ((Block{.type = Type::Open, .data = payload.bytes}).To(*control), Status::ProtocolError) << payload.tells;
    EXPECT_EQ((Block{.type = Type::Open, .data = "\2\0\0\0x\0"sv}).To(*control), Status::ProtocolError)
        << "the faulty one stays: " << payload.tells;
  }
}

TEST_F(StreamBlocks, OfAnAcknowledgementThatNobodyWaitsForChangeNothing) {
  Connect();
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->stream()->setLevel(kTraceLevel);
  ipcTrace->stream()->addSink(lines);
  Answer(Status::AccessDenied);
  ipcTrace->removeAllSinks();
  EXPECT_EQ(stream->state(), State::Connected);
  EXPECT_EQ(stream->remoteStreamId(), kPeerId);
  std::vector<std::string> told;
  for (const auto& line : lines->Take()) told.push_back(line.function);
  EXPECT_THAT(told, testing::Contains("completeConnectExistingLink")) << "though there is nothing to do";
  pool::RunAll();
  EXPECT_THAT(heard.texts, IsEmpty());
}

TEST_F(StreamDispatch, DeliversInTheOrderOfArrivalOneAtATime) {
  Connect();
  int within = 0;
  heard.then = [&](const LmIpclibMsg&) {
    EXPECT_EQ(++within, 1);
    EXPECT_EQ((Block{.data = heard.texts.size() < 3 ? "more" : "last"}).To(*stream), Status::Success);
    stream->deferredDispatch();
    EXPECT_EQ(pool::Queued(), 0u) << "the dispatch that runs takes it with it";
    --within;
    if (heard.texts.size() == 4) heard.then = nullptr;
  };
  Hear(Type::Msg, "first");
  EXPECT_THAT(heard.texts, ElementsAre("first", "more", "more", "last", "last"));
}

TEST_F(StreamDispatch, WaitsForTheLinkToSayThatTheBatchIsOver) {
  Connect();
  EXPECT_EQ((Block{.data = "a"}).To(*stream), Status::Success);
  EXPECT_EQ((Block{.data = "b"}).To(*stream), Status::Success);
  EXPECT_EQ(pool::Queued(), 0u);
  stream->deferredDispatch();
  stream->deferredDispatch();
  EXPECT_EQ(pool::Queued(), 1u) << "one pass for all of them";
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("a", "b"));
}

TEST_F(StreamDispatch, CostsNothingWhenNothingHasCome) {
  Connect();
  stream->deferredDispatch();
  EXPECT_EQ(pool::Queued(), 0u);
}

TEST_F(StreamDispatch, GivesAMessageItsStream) {
  Connect();
  heard.then = [this](const LmIpclibMsg& message) { EXPECT_EQ(message.stream(), stream); };
  Hear(Type::Msg, "one");
  EXPECT_EQ(heard.texts.size(), 1u);
}

TEST_F(StreamDispatch, SkipsTypesThatMeanNothingToAStream) {
  Connect();
  Hear(Type::None, "x");
  EXPECT_THAT(heard.texts, IsEmpty());
  Hear(Type::Msg, "y");
  EXPECT_THAT(heard.texts, ElementsAre("y"));
}

TEST_F(StreamDispatch, OfALogicErrorInTheCallbackEndsTheLinkAndNotTheProcess) {
  Connect();
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(lines);
  EXPECT_EQ((Block{.data = "bad"}).To(*stream), Status::Success);
  EXPECT_EQ((Block{.data = "behind it"}).To(*stream), Status::Success);
  heard.then = [](const LmIpclibMsg& message) {
    if (TextOf(message) == "bad") throw std::logic_error("a mistake");
  };
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_EQ(link->faults, 1);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("bad", "behind it", "<end>"));
  EXPECT_EQ(link->Streams(), 0u);
  EXPECT_THAT(lines->TakeTexts(),
              testing::Contains(testing::AllOf(testing::StartsWith("- state: Connected, streamId: 0x53"),
                                               testing::EndsWith(", status: ProtocolError"))));
  ipcTrace->removeAllSinks();
}

CHILD_BODY(HearsWith) {
  const auto executor = NewExecutor();
  const auto link = Carrier::Connected(executor);
  LmIpclibStream::RecvCallback callback;
  if (arguments.at(0) == "a callback that throws") {
    callback = [](Status, const std::shared_ptr<LmIpclibMsg>&) {
      throw std::runtime_error("no mistake of the user's");
    };
  }
  const auto stream = std::make_shared<LmIpclibStream>(kEndpoint, u"calc", StreamFlags(), 7, kPeerId, executor, link);
  static_cast<void>(stream->accept({}, callback));
  static_cast<void>((Block{.data = "x"}).To(*stream));
  stream->deferredDispatch();
  support::Say("delivering");
  pool::RunAll();
  support::Say("delivered");
  return 0;
}

TEST_F(StreamDispatch, OfAnyOtherExceptionEndsTheProcessAsDoesTheWantOfACallback) {
  for (const char* with : {"a callback that throws", "no callback"}) {
    support::Process child = support::StartChild("HearsWith", {with});
    EXPECT_EQ(child.Hear(), "delivering");
    EXPECT_EQ(child.Hear(), "") << with;
    EXPECT_NE(child.Wait(), 0) << with;
  }
}

TEST_F(StreamDispatch, OfALogicErrorAtTheVeryEndStillLetsGoOfTheLink) {
  Connect();
  heard.then = [](const LmIpclibMsg&) { throw std::logic_error("a mistake"); };
  stream->shutdown();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_EQ(link->Streams(), 0u);
}

TEST_F(StreamSend, RefusesWhatIsNoMessage) {
  Connect();
  const auto isRefused = [this](StreamFlags flags, std::uint32_t size, const void* data, LmIpclibMsg::OnComplete done) {
    return stream->send(flags, size, data, std::move(done)).status() == Status::InvalidParam;
  };
  EXPECT_TRUE(isRefused({}, 1, nullptr, Ignore()));
  EXPECT_TRUE(isRefused({}, 0, "x", Ignore())) << "an empty message means the end";
  EXPECT_TRUE(isRefused(StreamFlags(1), 1, "x", Ignore()));
  EXPECT_TRUE(isRefused({}, 1, "x", nullptr));
  pool::RunAll();
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
}

TEST_F(StreamSend, IsRefusedUnlessConnectedOrClosedByThePeer) {
  stream = NewInitiator();
  EXPECT_EQ(Send("x"), Status::InvalidState) << "Init";
  auto status = BeginConnect();
  EXPECT_EQ(Send("x"), Status::InvalidState) << "Connecting";
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  EXPECT_EQ(Send("x"), Status::Success) << "Connected";
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(Send("x"), Status::InvalidState) << "closed from this side";
  stream->shutdown();
  EXPECT_EQ(Send("x"), Status::InvalidState) << "Closed";
}

TEST_F(StreamSend, GoesOnWhenThePeerHasClosedUntilTheUserCloses) {
  Connect();
  heard.then = [this](const LmIpclibMsg&) {
    EXPECT_EQ(Send("goodbye"), Status::Success);
    EXPECT_EQ(stream->close(kNoLimit), Status::Success);
    EXPECT_EQ(Send("too late"), Status::InvalidState);
  };
  Hear(Type::Close);
  EXPECT_THAT(link->TakeSentTypes(), ElementsAre(Type::Msg, Type::CloseAck));
  EXPECT_EQ(Send("no link"), Status::InvalidState);
}

TEST_F(StreamSend, BehindTheEmptyMessageHasNoLink) {
  Connect();
  BeClosedByPeer();
  EXPECT_EQ(Send("x"), Status::InvalidState);
  EXPECT_EQ(stream->outstandingSends(), 0u);
}

TEST_F(StreamSend, BorrowsTheDataAndCountsUntilItIsComplete) {
  Connect();
  const std::string data = "payload";
  std::vector<Status> completed;
  const auto sent = stream->send({}, 7, data.data(), [&](Status status, const std::shared_ptr<LmIpclibMsg>&) {
    completed.push_back(status);
    EXPECT_EQ(stream->outstandingSends(), 1u);
  });
  ASSERT_TRUE(sent);
  EXPECT_EQ((*sent)->data(), reinterpret_cast<const std::byte*>(data.data()));
  EXPECT_EQ((*sent)->flags(), LmIpclibMsg::kCountsAsOutstanding);
  EXPECT_EQ((*sent)->srcStreamId(), stream->streamId());
  EXPECT_EQ((*sent)->destStreamId(), kPeerId);
  EXPECT_EQ((*sent)->stream(), stream);
  EXPECT_EQ(stream->outstandingSends(), 1u);
  pool::RunAll();
  link->TakeSent().front()->sendComplete(Status::StreamClosed);
  EXPECT_THAT(completed, ElementsAre(Status::StreamClosed));
  EXPECT_EQ(stream->outstandingSends(), 0u);
}

TEST_F(StreamSend, ThatTheLinkRefusesReturnsItsStatusAndCallsNobody) {
  Connect();
  link->Refuse();
  const auto sent = stream->send({}, 1, "x", [](Status, const std::shared_ptr<LmIpclibMsg>&) { FAIL(); });
  EXPECT_EQ(sent.status(), Status::InvalidState);
  EXPECT_EQ(stream->outstandingSends(), 0u);
}

TEST_F(StreamSend, OfAProtocolMessageIsNotCounted) {
  Connect();
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  pool::RunAll();
  EXPECT_EQ(stream->outstandingSends(), 0u);
  link->TakeSent().front()->sendComplete(Status::Success);
  EXPECT_EQ(stream->outstandingSends(), 0u);
}

TEST_F(StreamSend, IsTraced) {
  Connect();
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->msg()->setLevel(kTraceLevel);
  ipcTrace->msg()->addSink(lines);
  ASSERT_EQ(Send("x"), Status::Success);
  ipcTrace->removeAllSinks();
  const auto about = fmt::format("state: Connected, streamId: {:#x}", stream->streamId());
  std::vector<std::string> ofSend;
  for (const auto& line : lines->Take()) {
    if (line.function == "send") ofSend.push_back(line.text);
  }
  EXPECT_THAT(ofSend, ElementsAre("> " + about, "< " + about));
  pool::RunAll();
}

}  // namespace
}  // namespace streams
