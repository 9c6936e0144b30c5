#include <vector>

#include "tests/streams/streamFixture.h"

namespace streams {
namespace {

using StreamClose = StreamFixture;
using StreamShutdown = StreamFixture;

TEST_F(StreamClose, InInitIsRefused) {
  stream = NewInitiator();
  EXPECT_EQ(stream->close(kNoLimit), Status::InvalidState);
  EXPECT_EQ(stream->state(), State::Init);
}

TEST_F(StreamClose, TellsThePeerAndEndsWithItsAnswer) {
  Connect();
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->state(), State::Closing);
  pool::RunAll();
  const auto sent = link->TakeSent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0]->msgType(), Type::Close);
  EXPECT_EQ(sent[0]->flags(), 0u);
  EXPECT_EQ(sent[0]->srcStreamId(), stream->streamId());
  EXPECT_EQ(sent[0]->destStreamId(), kPeerId);
  EXPECT_THAT(heard.texts, IsEmpty());

  Hear(Type::CloseAck);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_EQ(link->Streams(), 0u) << "the stream has let go of its link";
}

TEST_F(StreamClose, StillHearsWhatThePeerSaidBeforeItsAnswer) {
  Connect();
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  Hear(Type::Msg, "last words");
  Hear(Type::CloseAck);
  EXPECT_THAT(heard.texts, ElementsAre("last words", "<end>"));
}

TEST_F(StreamClose, FromThisSideTwiceIsRefused) {
  Connect();
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->close(kNoLimit), Status::InvalidState);
  EXPECT_EQ(stream->state(), State::Closing);
}

TEST_F(StreamClose, OfAClosedStreamSucceedsEveryTime) {
  Connect();
  stream->shutdown();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  pool::RunAll();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(stream->close(std::chrono::milliseconds(1)), Status::Success);
  EXPECT_EQ(stream->state(), State::Closed);
}

TEST_F(StreamClose, WithAnyLimitTakesTenSecondsWhateverTheLimitSaid) {
  for (const auto limit :
       {std::chrono::milliseconds(0), std::chrono::milliseconds(1), std::chrono::milliseconds(3600000)}) {
    Renew();
    Connect();
    ASSERT_EQ(stream->close(limit), Status::Success);
    pool::RunAll();
    const auto timer = pool::TimerSet();
    ASSERT_TRUE(timer);
    EXPECT_EQ(timer->due, -100'000'000) << "10 seconds from now, in units of 100 ns";
    EXPECT_EQ(timer->period, 0u);
    EXPECT_EQ(stream->state(), State::Closing);
    pool::Fire();
    pool::RunAll();
    EXPECT_EQ(stream->state(), State::Closed);
    EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  }
}

TEST_F(StreamClose, WithoutALimitWaitsUntilTheStreamIsShutDown) {
  Connect();
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  pool::RunAll();
  EXPECT_FALSE(pool::TimerSet());
  EXPECT_EQ(stream->state(), State::Closing);
  stream->shutdown();
  EXPECT_EQ(stream->state(), State::Closed);
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(StreamClose, ThatIsAnsweredCancelsItsLimit) {
  for (const Type answer : {Type::CloseAck, Type::Close}) {
    Renew();
    Connect();
    ASSERT_EQ(stream->close(std::chrono::seconds(1)), Status::Success);
    ASSERT_TRUE(pool::TimerSet());
    EXPECT_EQ((Block{.type = answer}).To(*stream), Status::Success);
    stream->deferredDispatch();
    pool::RunAll();
    EXPECT_FALSE(pool::TimerSet());
    EXPECT_EQ(stream->state(), State::Closed);
  }
}

TEST_F(StreamClose, WhoseLimitComesTooLateIsNotDisturbedByIt) {
  Connect();
  ASSERT_EQ(stream->close(std::chrono::seconds(1)), Status::Success);
  pool::RunAll();
  pool::Fire();
  EXPECT_EQ((Block{.type = Type::CloseAck}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::Run(1);    // The answer first,
  pool::RunAll();  // and then the timer, whose callback was queued already.
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(StreamClose, FromBothSidesAtOnceEndsAtOnceWithoutAnAnswer) {
  Connect();
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  pool::RunAll();
  link->sent.clear();
  Hear(Type::Close);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
}

TEST_F(StreamClose, ThatThePeerCannotHearOfEndsAsIfItHadAnswered) {
  Connect();
  link->Refuse();
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->state(), State::Closing);
  pool::RunAll();
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(StreamClose, OfThePeerIsHeardAsTheEmptyMessageAndAnsweredByTheUsersClose) {
  Connect();
  heard.then = [this](const LmIpclibMsg& message) {
    EXPECT_EQ(message.size(), 0u);
    EXPECT_EQ(stream->state(), State::Closing);
    EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  };
  Hear(Type::Close);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_EQ(stream->state(), State::Closed);
  const auto sent = link->TakeSent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0]->msgType(), Type::CloseAck);
  EXPECT_EQ(sent[0]->srcStreamId(), stream->streamId());
  EXPECT_EQ(sent[0]->destStreamId(), kPeerId);
}

TEST_F(StreamClose, BehindTheEmptyMessageHasNoWayToThePeer) {
  Connect();
  BeClosedByPeer();
  EXPECT_EQ(link->Streams(), 0u);
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->state(), State::Closed);
  pool::RunAll();
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
}

TEST_F(StreamClose, BehindTheEmptyMessageTellsThePeerNothingThoughTheLinkIsThereForOthers) {
  const auto other = NewAcceptor();
  ASSERT_EQ(link->addStream(other), Status::Success);
  Connect();
  BeClosedByPeer();
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->state(), State::Closed);
  pool::RunAll();
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty());
  EXPECT_EQ(link->state(), LmIpclibLink::State::Connected);
  EXPECT_EQ(link->removeStream(other), Status::Success);
}

TEST_F(StreamClose, OfThePeerTwiceIsHeardOnce) {
  Connect();
  EXPECT_EQ((Block{.type = Type::Close}).To(*stream), Status::Success);
  EXPECT_EQ((Block{.type = Type::Close}).To(*stream), Status::Success);
  stream->deferredDispatch();
  pool::RunAll();
  EXPECT_EQ(stream->state(), State::Closing);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(StreamClose, AnsweredBeforeItIsAskedForChangesNothing) {
  Connect();
  Hear(Type::CloseAck);
  EXPECT_EQ(stream->state(), State::Connected);
  EXPECT_THAT(heard.texts, IsEmpty());
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->state(), State::Closing) << "that answer does not count";
}

TEST_F(StreamClose, WithoutAnExecutorHasNoLimit) {
  Connect();
  executor.reset();
  EXPECT_EQ(stream->close(std::chrono::seconds(1)), Status::Success);
  EXPECT_EQ(stream->state(), State::Closing);
  EXPECT_FALSE(pool::TimerSet());
  stream->shutdown();
  EXPECT_EQ(stream->state(), State::Closed);
}

TEST_F(StreamClose, BeforeMessagesFlowEndsWithTheLink) {
  auto status = BeginConnect();
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  Hear(Type::CloseAck);
  EXPECT_EQ(stream->state(), State::Closing) << "nobody has said yet that messages may flow";
  EXPECT_EQ(stream->completeConnect(), Status::InvalidState);
  stream->shutdown();
  EXPECT_EQ(link->Streams(), 0u);
}

TEST_F(StreamShutdown, InInitCloses) {
  stream = NewInitiator();
  stream->shutdown();
  EXPECT_EQ(stream->state(), State::Closed);
}

TEST_F(StreamShutdown, OfAConnectedStreamIsHeardAsTheEmptyMessage) {
  Connect();
  stream->shutdown();
  EXPECT_EQ(stream->state(), State::Closed);
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_EQ(link->Streams(), 0u);
  EXPECT_THAT(link->TakeSentTypes(), IsEmpty()) << "the peer is told nothing";
}

TEST_F(StreamShutdown, StillDeliversWhatCameBefore) {
  Connect();
  ASSERT_EQ((Block{.data = "one"}).To(*stream), Status::Success);
  ASSERT_EQ((Block{.data = "two"}).To(*stream), Status::Success);
  stream->shutdown();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("one", "two", "<end>"));
}

TEST_F(StreamShutdown, OfThePeerIsHeardAsTheEmptyMessage) {
  Connect();
  Hear(Type::Shutdown);
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(StreamShutdown, OfAStreamThatThePeerHasClosedLeavesItThere) {
  Connect();
  // The user has not heard the end yet, so the stream still has its link.
  heard.then = [this](const LmIpclibMsg&) {
    stream->shutdown();
    EXPECT_EQ(stream->state(), State::Closing);
  };
  Hear(Type::Close);
  stream->shutdown();
  EXPECT_EQ(stream->state(), State::Closing);
  EXPECT_EQ(stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(stream->state(), State::Closed);
}

TEST_F(StreamShutdown, OfAClosedStreamDoesNothing) {
  Connect();
  stream->shutdown();
  stream->shutdown();
  pool::RunAll();
  stream->shutdown();
  pool::RunAll();
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(StreamShutdown, BeforeMessagesFlowLetsGoOfTheLinkWithoutAWord) {
  auto status = BeginConnect();
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  Hear(Type::Msg, "nobody listens");
  stream->shutdown();
  EXPECT_EQ(stream->state(), State::Closed);
  EXPECT_EQ(link->Streams(), 0u);
  EXPECT_EQ(stream->completeConnect(), Status::InvalidState);
  pool::RunAll();
  EXPECT_THAT(heard.texts, IsEmpty());
}

}  // namespace
}  // namespace streams
