#include <functional>
#include <set>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/lineSink.h"
#include "tests/streams/streamFixture.h"
#include "tests/support/meeting.h"

namespace streams {
namespace {

class Link : public StreamFixture {
 public:
  [[nodiscard]] static std::shared_ptr<LmIpclibMsg> Message(std::string_view data = "x") {
    return std::make_shared<LmIpclibMsg>(Type::Msg, 0, Status::Success, nullptr, 1, 2,
                                         static_cast<std::uint32_t>(data.size()),
                                         reinterpret_cast<const std::byte*>(data.data()), Ignore());
  }
};

TEST_F(Link, DrawsIdsThatTellLinksApart) {
  std::set<std::uint64_t> low;
  for (int i = 0; i < 100; ++i) {
    const Carrier each;
    EXPECT_EQ(each.linkId() >> 56, 0x4Cu);
    low.insert(each.linkId() & 0xFFFFFFFF);
  }
  EXPECT_EQ(low.size(), 100u);
  EXPECT_FALSE(low.contains(0));
}

TEST_F(Link, IsConnectedByOneThreadAlone) {
  Carrier fresh;
  EXPECT_EQ(fresh.connecting(), Status::Success);
  EXPECT_EQ(fresh.connecting(), Status::InvalidState);
  EXPECT_EQ(fresh.state(), LinkState::Connecting);
  EXPECT_EQ(link->connecting(), Status::InvalidState);
}

TEST_F(Link, IsStartedOnlyWhileItConnects) {
  unsigned errorCode = 0;
  EXPECT_EQ(link->start(executor, errorCode), Status::InvalidState);
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(Link, WithoutAnExecutorDoesNotStart) {
  const auto fresh = std::make_shared<Carrier>();
  ASSERT_EQ(fresh->connecting(), Status::Success);
  auto gone = NewExecutor();
  const std::weak_ptr<Executor> weak = gone;
  gone.reset();
  unsigned errorCode = 0;
  EXPECT_EQ(fresh->start(weak.lock(), errorCode), Status::Unexpected) << "what its control stream says";
  fresh->shutdown();
}

TEST_F(Link, ThatIsConnectedKeepsNobodyWaiting) { EXPECT_EQ(link->connectWait(), Status::Success); }

// Tells when a thread has come to wait for the link: it holds the lock from then on until it sleeps.
class SeesTheWait final : public quill::log::Sink {
 public:
  void Write(std::int32_t, const quill::log::Location& location, std::string_view text) override {
    if (std::string_view(location.function) == "connectWait" && text.starts_with(">")) seen.Give();
  }
  support::Signal seen;
};

TEST_F(Link, ThatFailsWakesThoseWhoWaitForIt) {
  const auto fresh = std::make_shared<Carrier>();
  ASSERT_EQ(fresh->connecting(), Status::Success);
  const auto sees = std::make_shared<SeesTheWait>();
  ipcTrace->attach(sees);
  auto waits = std::async(std::launch::async, [&] { return fresh->connectWait(); });
  sees->seen.Await();
  ipcTrace->removeAllSinks();
  fresh->shutdown();
  fresh->notifyConnectWaiters();
  EXPECT_EQ(waits.get(), Status::InvalidState);
}

TEST_F(Link, KeepsWhatIsSentWhileItConnects) {
  const auto fresh = std::make_shared<Carrier>();
  EXPECT_EQ(fresh->send(Message()), Status::InvalidState) << "Init";
  ASSERT_EQ(fresh->connecting(), Status::Success);
  EXPECT_EQ(fresh->send(Message()), Status::Success);
  EXPECT_EQ(pool::Queued(), 0u);
  unsigned errorCode = 0;
  ASSERT_EQ(fresh->start(executor, errorCode), Status::Success);
  EXPECT_EQ(fresh->send(Message()), Status::Success);
  pool::RunAll();
  EXPECT_EQ(fresh->TakeSent().size(), 2u);
  fresh->shutdown();
  pool::RunAll();
}

TEST_F(Link, TakesNothingOnceItStops) {
  link->Refuse();
  EXPECT_EQ(link->send(Message()), Status::InvalidState);
  EXPECT_EQ(link->addStream(NewAcceptor()), Status::InvalidState);
}

TEST_F(Link, SubmitsOneTaskForABurst) {
  for (int i = 0; i < 100; ++i) ASSERT_EQ(link->send(Message()), Status::Success);
  EXPECT_EQ(pool::Queued(), 1u);
  pool::RunAll();
  EXPECT_EQ(link->TakeSent().size(), 100u);
  ASSERT_EQ(link->send(Message()), Status::Success);
  EXPECT_EQ(pool::Queued(), 1u);
}

TEST_F(Link, BeginsEachMessageAnew) {
  const auto message = Message("12345");
  static_cast<void>(message->takeRemaining(3));
  ASSERT_EQ(link->send(message), Status::Success);
  EXPECT_EQ(message->remaining(), 5u);
}

TEST_F(Link, RefusesASecondStreamOfTheSameIdAndKeepsTheFirst) {
  stream = NewAcceptor();
  EXPECT_EQ(link->addStream(stream), Status::Success);
  EXPECT_EQ(link->addStream(stream), Status::AlreadyExists);
  EXPECT_EQ(link->Stream(stream->streamId()), stream);
  EXPECT_EQ(link->removeStream(stream), Status::Success);
}

TEST_F(Link, FindsNoStreamThatIsNotItsOwn) {
  stream = NewAcceptor();
  EXPECT_EQ(link->removeStream(stream), Status::NotFound);
  EXPECT_EQ(link->eraseStream(stream), Status::NotFound);
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(Link, DoesNotRemoveItsControlStream) {
  const auto control = link->Control();
  EXPECT_EQ(link->removeStream(control), Status::NotFound);
  EXPECT_EQ(link->eraseStream(control), Status::NotFound);
  EXPECT_EQ(link->Control(), control);
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(Link, ClosesWithItsLastStream) {
  std::vector<LinkState> closed;
  const auto own = std::make_shared<Carrier>([](LmIpclibLink&) {},
                                             [&](LmIpclibLink& which) {
                                               closed.push_back(which.state());
                                               EXPECT_EQ(which.addStream(NewAcceptor()), Status::InvalidState)
                                                   << "no lock is held";
                                             });
  ASSERT_EQ(own->connecting(), Status::Success);
  unsigned errorCode = 0;
  ASSERT_EQ(own->start(executor, errorCode), Status::Success);
  const auto first = NewAcceptor();
  const auto last = NewAcceptor();
  ASSERT_EQ(own->addStream(first), Status::Success);
  ASSERT_EQ(own->addStream(last), Status::Success);
  EXPECT_EQ(own->removeStream(first), Status::Success);
  EXPECT_EQ(own->state(), LinkState::Connected);
  EXPECT_EQ(own->removeStream(last), Status::Success);
  EXPECT_THAT(closed, ElementsAre(LinkState::Closed));
  pool::RunAll();
}

TEST_F(Link, StaysOpenWhenAStreamIsOnlyTakenBack) {
  const auto only = NewAcceptor();
  ASSERT_EQ(link->addStream(only), Status::Success);
  EXPECT_EQ(link->eraseStream(only), Status::Success);
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(Link, SendsWhatIsQueuedBeforeItCloses) {
  const auto only = NewAcceptor();
  ASSERT_EQ(link->addStream(only), Status::Success);
  ASSERT_EQ(link->send(Message()), Status::Success);
  EXPECT_EQ(link->removeStream(only), Status::Success);
  EXPECT_EQ(link->state(), LinkState::Closing);
  EXPECT_EQ(link->send(Message()), Status::InvalidState);
  pool::RunAll();
  EXPECT_EQ(link->TakeSent().size(), 1u);
  EXPECT_EQ(link->state(), LinkState::Closed);
}

TEST_F(Link, WithoutACallbackForItsEndThrowsThere) {
  const auto own = std::make_shared<Carrier>([](LmIpclibLink&) {}, nullptr);
  ASSERT_EQ(own->connecting(), Status::Success);
  unsigned errorCode = 0;
  ASSERT_EQ(own->start(executor, errorCode), Status::Success);
  EXPECT_THROW(own->close(), std::bad_function_call);
  EXPECT_EQ(own->state(), LinkState::Closed);
  pool::RunAll();
}

TEST_F(Link, IsTraced) {
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(lines);
  Carrier fresh;
  ASSERT_EQ(fresh.connecting(), Status::Success);
  const auto message = Message();
  static_cast<void>(lines->Take());
  ASSERT_EQ(fresh.connecting(), Status::InvalidState);
  ASSERT_EQ(link->send(message), Status::Success);
  ipcTrace->removeAllSinks();
  const auto aboutFresh = fmt::format("m_state: Connecting, linkId: {:#x}", fresh.linkId());
  const auto about = fmt::format("m_state: Connected, linkId: {:#x}", link->linkId());
  EXPECT_THAT(lines->TakeTexts(), ElementsAre("> " + aboutFresh, "< " + aboutFresh + ", status: InvalidState",
                                              fmt::format("> {}, msgId: {}", about, message->msgId()), "> " + about,
                                              "< " + about, "< " + about + ", status: Success"));
}

class ControlStream : public StreamFixture {
 public:
  // The peer asks for a stream of that name.
  void Ask(std::u16string_view name, std::uint32_t flags = 0, std::uint64_t source = kPeerId) const {
    const std::string payload = writeOpenPayload(name);
    const Block open{.type = Type::Open, .flags = flags | kFirstBlock | kLastBlock, .data = payload, .source = source};
    ASSERT_EQ(open.To(*link->Control()), Status::Success);
    link->Control()->deferredDispatch();
    pool::RunAll();
  }
  void Listen(LmIpclibLinkListener::OnStream onStream) {
    listener = std::make_shared<LmIpclibLinkListener>(kEndpoint, std::move(onStream));
    link->Listen(listener);
  }
  void ExpectRefusal(Status status) const {
    const auto sent = link->TakeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0]->msgType(), Type::OpenAck);
    EXPECT_EQ(sent[0]->status(), status);
    EXPECT_EQ(sent[0]->flags(), 0u);
    EXPECT_EQ(sent[0]->srcStreamId() >> 56, 0x53u);
    EXPECT_EQ(sent[0]->destStreamId(), kPeerId);
    EXPECT_EQ(link->Streams(), 0u);
  }

  std::shared_ptr<LmIpclibLinkListener> listener;
};

TEST_F(ControlStream, IsConnectedFromTheStartAndNamedForWhatItIs) {
  const auto control = link->Control();
  EXPECT_EQ(control->state(), State::Connected);
  EXPECT_EQ(control->streamName(), u"link-control");
  EXPECT_EQ(control->flags(), StreamFlags(LmIpclibStreamFlag::Control));
  EXPECT_EQ(control->remoteStreamId(), 0u);
  EXPECT_EQ(link->Streams(), 0u) << "it is not among the streams of its link";
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
}

TEST_F(ControlStream, MakesAStreamOfEachOpenAndOffersItToTheListener) {
  Listen([this](const std::shared_ptr<LmIpclibStream>& offered) {
    stream = offered;
    return stream->accept({}, heard.Callback());
  });
  Ask(u"calc", 0x00050000);
  ASSERT_TRUE(stream);
  EXPECT_EQ(stream->streamName(), u"calc");
  EXPECT_EQ(stream->flags(), StreamFlags(0x00050000));
  EXPECT_EQ(stream->remoteStreamId(), kPeerId);
  EXPECT_EQ(stream->endpoint(), kEndpoint);
  EXPECT_EQ(link->Stream(stream->streamId()), stream);
  const auto sent = link->TakeSent();
  ASSERT_EQ(sent.size(), 1u) << "the acknowledgement comes from accept";
  EXPECT_EQ(sent[0]->msgType(), Type::OpenAck);
  EXPECT_EQ(sent[0]->status(), Status::Success);
  EXPECT_EQ(sent[0]->srcStreamId(), stream->streamId());
  EXPECT_EQ(sent[0]->flags(), 0x00050000u);
}

TEST_F(ControlStream, IgnoresWhatStandsBehindTheNameAndHalfAUnitOfIt) {
  std::vector<std::u16string> names;
  Listen([&](const std::shared_ptr<LmIpclibStream>& offered) {
    names.push_back(offered->streamName());
    return Status::AccessDenied;
  });
  using namespace std::string_view_literals;
  for (const auto payload : {"\2\0\0\0a\0more"sv, "\3\0\0\0b\0c"sv}) {
    ASSERT_EQ((Block{.type = Type::Open, .data = payload}).To(*link->Control()), Status::Success);
  }
  link->Control()->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(names, ElementsAre(u"a", u"b"));
}

TEST_F(ControlStream, MakesTwoStreamsOfTwoOpensFromTheSameStream) {
  std::vector<std::shared_ptr<LmIpclibStream>> offered;
  Listen([&](std::shared_ptr<LmIpclibStream> each) {
    offered.push_back(std::move(each));
    return Status::Success;
  });
  Ask(u"a");
  Ask(u"a");
  ASSERT_EQ(offered.size(), 2u);
  EXPECT_NE(offered[0]->streamId(), offered[1]->streamId());
  EXPECT_EQ(link->Streams(), 2u);
}

TEST_F(ControlStream, RefusesAnOpenWhereNobodyListens) {
  Ask(u"calc");
  ExpectRefusal(Status::NotFound);
}

TEST_F(ControlStream, RefusesWhatTheListenerRefuses) {
  Listen([this](const std::shared_ptr<LmIpclibStream>& offered) {
    stream = offered;
    return Status::AccessDenied;
  });
  Ask(u"calc");
  ExpectRefusal(Status::AccessDenied);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(link->state(), LinkState::Connected) << "the link is there for others";
}

TEST_F(ControlStream, CannotServeAnOpenOnALinkThatStops) {
  bool offered = false;
  Listen([&](const std::shared_ptr<LmIpclibStream>&) {
    offered = true;
    return Status::Success;
  });
  link->Refuse();
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(lines);
  Ask(u"calc");
  ipcTrace->removeAllSinks();
  EXPECT_FALSE(offered);
  std::vector<std::string> ends;
  for (const auto& line : lines->Take()) {
    if ((line.function == "addStream" || line.function == "send") && line.text.starts_with("<")) {
      ends.push_back(line.function + line.text.substr(line.text.rfind(',')));
    }
  }
  EXPECT_THAT(ends, ElementsAre("addStream, status: InvalidState", "send, status: InvalidState"));
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty()) << "a link that stops does not take the refusal either";
}

TEST_F(ControlStream, WhoseExecutorIsGoneDropsAnOpenWithoutAnAnswer) {
  int offered = 0;
  Listen([&](const std::shared_ptr<LmIpclibStream>&) {
    ++offered;
    executor.reset();
    return Status::Success;
  });
  const auto control = link->Control();
  const std::string payload = writeOpenPayload(u"calc");
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ((Block{.type = Type::Open, .data = payload}).To(*control), Status::Success);
  }
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(lines);
  control->deferredDispatch();
  pool::RunAll();
  ipcTrace->removeAllSinks();
  EXPECT_EQ(offered, 1);
  EXPECT_EQ(link->Streams(), 1u) << "of the second Open nothing is made";
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
  EXPECT_THAT(
      lines->TakeTexts(),
      testing::Contains(fmt::format("< state: Connected, streamId: {:#x}, status: InvalidState", control->streamId())));
}

TEST_F(ControlStream, ThatGetsAMessageEndsTheLink) {
  const auto lines = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(lines);
  const auto control = link->Control();
  ASSERT_EQ((Block{.data = "hello"}).To(*control), Status::Success);
  control->deferredDispatch();
  pool::RunAll();
  ipcTrace->removeAllSinks();
  EXPECT_EQ(link->faults, 1);
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(
      lines->TakeTexts(),
      testing::Contains(fmt::format("< state: Connected, streamId: {:#x}, status: InvalidParam", control->streamId())));
}

TEST_F(ControlStream, IsShutDownWithTheLinkWithoutAnyEffect) {
  bool offered = false;
  Listen([&](const std::shared_ptr<LmIpclibStream>&) {
    offered = true;
    return Status::Success;
  });
  const auto control = link->Control();
  link->shutdown();
  EXPECT_EQ(link->Control(), nullptr);
  EXPECT_EQ(control->state(), State::Closed);
  pool::RunAll();
  EXPECT_FALSE(offered);
  EXPECT_EQ(link->faults, 1);
}

TEST_F(ControlStream, TakesNoPartInACloseHandshake) {
  const auto control = link->Control();
  ASSERT_EQ((Block{.type = Type::Close}).To(*control), Status::Success);
  control->deferredDispatch();
  pool::RunAll();
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(ControlStream, WithoutAnExecutorDoesNotStart) {
  const auto lonely =
      std::make_shared<LmIpclibStreamCtrl>(kEndpoint, StreamFlags(), 0, std::weak_ptr<Executor>(), link);
  EXPECT_EQ(lonely->start(), Status::Unexpected);
  EXPECT_EQ(lonely->state(), State::Closed);
}

}  // namespace
}  // namespace streams
