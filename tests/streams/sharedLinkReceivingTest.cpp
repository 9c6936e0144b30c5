// Which blocks of a transaction reach their streams.
#include <algorithm>
#include <vector>

#include "lib/ipc/ipclib/lineSink.h"
#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

// How often the operation on the stream has begun since the last look.
std::ptrdiff_t Begun(quill::log::LineSink& sink, std::string_view operation, const LmIpclibStream& stream) {
  const std::string id = fmt::format("streamId: {:#x}", stream.streamId());
  return std::ranges::count_if(sink.Take(), [&](const auto& line) {
    return line.function == operation && line.text.starts_with(">") && line.text.ends_with(id);
  });
}

TEST_F(SharedLink, TakesATransactionThatFillsTheChannel) {
  Connect();
  const std::string all(4096 - 28 - 40, 'a');
  peer->Put(Of({For(stream, all)}), 1);
  EXPECT_THAT(heard.texts, ElementsAre(all));
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(SharedLink, LooksAtTheSenderOfEveryBlock) {
  Connect();
  peer->Put(Of({For(stream, "one"), For(stream, "forged", kPeerId + 1), For(stream, "two")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("one", "two"));
}

// It would be taken for a message that begins in the middle of another, and end the link.
TEST_F(SharedLink, DropsAnOpenAckForAStreamThatIsOpen) {
  Connect();
  RawBlock front = For(stream, "front");
  front.flags = kFirstBlock;
  RawBlock ack = For(stream, "");
  ack.type = 2;
  RawBlock back = For(stream, " and back");
  back.flags = kLastBlock;
  RawTransaction transaction = Of({front, ack, back});
  transaction.Put32(28 + 36, 5 + 9);  // What the message is to come to.
  peer->Put(transaction, 1);
  EXPECT_THAT(heard.texts, ElementsAre("front and back"));
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(SharedLink, TakesARefusalByTheLastBlocksStreamForNothing) {
  Connect();
  ASSERT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  const auto refusing = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(), 7, kPeerId, executor, link);
  ASSERT_EQ(link->addStream(refusing), Status::Success);  // In Init: nobody has accepted it.
  peer->Put(Of({For(stream, "one"), For(refusing, "refused")}), 1);
  EXPECT_THAT(heard.texts, ElementsAre("one"));
  EXPECT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  peer->Put(Of({For(refusing, "refused"), For(stream, "two")}), 2);
  EXPECT_THAT(heard.texts, ElementsAre("one", "two"));
  EXPECT_EQ(link->removeStream(refusing), Status::Success);
}

TEST_F(SharedLink, DoesNotAskAStreamToDeliverThatHasRefused) {
  Connect();
  const auto refusing = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(), 7, kPeerId, executor, link);
  ASSERT_EQ(link->addStream(refusing), Status::Success);
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  peer->Put(Of({For(refusing, "refused"), For(refusing, "refused again")}), 1);
  EXPECT_EQ(Begun(*sink, "deferredDispatch", *refusing), 0);
  peer->Put(Of({For(stream, "one"), For(stream, "two")}), 2);
  EXPECT_EQ(Begun(*sink, "deferredDispatch", *stream), 1) << "once for a transaction";
  ipcTrace->removeAllSinks();
  EXPECT_EQ(link->removeStream(refusing), Status::Success);
}

TEST_F(SharedLink, HasUsedUpTheNumberOfATransactionThatItRefuses) {
  Connect();
  peer->Put(Of({For(stream, "one")}), 1);
  peer->Put(Of({For(stream, "out of turn")}), 3);
  ASSERT_EQ(link->state(), LinkState::Closed);
  // What the channel holds was refused as the second, and would be the third.
  LmIpclibLink::StreamTable table;
  EXPECT_EQ(link->recv(table), Status::Success);
  EXPECT_EQ(link->recv(table), Status::ProtocolError);
}

TEST_F(SharedLink, EndsTheTransactionWithAProtocolErrorAndTellsNoStream) {
  Connect();
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  RawTransaction transaction = Of({For(stream, "ahead")});
  transaction.Seal(static_cast<std::uint32_t>(transaction.bytes.size()), 2, 1);
  peer->PutBytes(transaction.bytes);
  std::vector<std::string> ends;
  std::size_t dispatches = 0;
  for (const auto& line : sink->Take()) {
    if (line.function == "recv" && line.text.starts_with("<")) ends.push_back(line.text);
    if (line.function == "deferredDispatch") ++dispatches;
  }
  ipcTrace->removeAllSinks();
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_TRUE(ends[0].ends_with(", status: ProtocolError")) << ends[0];
  EXPECT_EQ(dispatches, 0u);
}

TEST_F(SharedLink, StillReadsWhileItCloses) {
  CloseWithOneUnsent();
  ASSERT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  for (const std::uint32_t trxSeqNo : {1u, 2u}) {
    peer->Put(Of({For(stream, "nobody is left to hear this")}), trxSeqNo);
    EXPECT_TRUE(TakeSignal(peer->toLink.dataConsumed));
    EXPECT_EQ(link->state(), LinkState::Closing);
  }
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

}  // namespace
}  // namespace streams
