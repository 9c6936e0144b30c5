#include <memory>
#include <string>

#include "tests/service/servedClients.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;
using State = LmIpclibStream::State;
using standIn::Hex;

class ServedLink : public Served {
 protected:
  // A client of the library's, whose link has come up.
  [[nodiscard]] std::unique_ptr<LibraryClient> Connect() {
    auto client = std::make_unique<LibraryClient>(*server);
    EXPECT_EQ(Next(), "connect stream talk procedure 0");
    EXPECT_THAT(Next(), StartsWith("asks version 1 link 0x4c"));
    EXPECT_EQ(Next(), "connected link " + Hex(client->link->linkId()));
    return client;
  }
  [[nodiscard]] static std::string Of(const LibraryClient& client) {
    return " stream " + Hex(client.stream->remoteStreamId());
  }
};

TEST_F(ServedLink, PrintsWhatAClientSays) {
  Start({"--bytes"});
  const auto client = Connect();
  client->Send("hello");
  EXPECT_EQ(Next(), "message" + Of(*client) + " bytes 5 68656c6c6f");
  EXPECT_EQ(Next(), "no command: shorter than its header");
}

TEST_F(ServedLink, PrintsCommands) {
  Start();
  const auto client = Connect();
  client->Send("\2\0\0\0\4\0\0\0a\0\0\0\0\0\0\0"s);
  EXPECT_EQ(Next(), "message" + Of(*client) + " bytes 16");
  EXPECT_EQ(Next(), "command 2 url a");
}

TEST_F(ServedLink, AnswersAClientThatCloses) {
  Start();
  const auto client = Connect();
  EXPECT_EQ(client->stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(Next(), "close" + Of(*client));
  client->heard.end.Await();
  client->AwaitClosed();
  EXPECT_EQ(Next(), "closed link " + Hex(client->link->linkId()));
}

TEST_F(ServedLink, TakesMessagesThatAreCutIntoTransactions) {
  Start({"--channel-size", "69", "--bytes"});
  const auto client = Connect();
  client->Send(std::string(300, 'a'));
  std::string hex;
  for (int i = 0; i < 300; ++i) hex += "61";
  EXPECT_EQ(Next(), "message" + Of(*client) + " bytes 300 " + hex);
  Order("send " + std::string(300, 'b'));
  client->heard.one.Await();
  EXPECT_THAT(client->heard.texts, ElementsAre(std::string(300, 'b')));
}

TEST_F(ServedLink, PrintsTransactionsAndBlocksWhenAsked) {
  Start({"--channel-size", "70", "--blocks"});
  const auto client = Connect();
  client->Send("hello");
  EXPECT_EQ(Next(), "transaction 1 blocks 1");
  EXPECT_EQ(Next(), "block Msg bytes 2 first");
  EXPECT_EQ(Next(), "transaction 2 blocks 1");
  EXPECT_EQ(Next(), "block Msg bytes 3 last");
  EXPECT_EQ(Next(), "message" + Of(*client) + " bytes 5");
}

TEST_F(ServedLink, AcceptsStreamsThatAClientOpens) {
  Start();
  const auto client = Connect();
  Heard heard;
  const auto other = client->NewStream(u"other\xD800", heard);
  EXPECT_EQ(other->connect({}, client->link, nullptr), Status::Success);
  EXPECT_EQ(other->completeConnect(), Status::Success);
  EXPECT_EQ(Next(), "open " + Hex(other->streamId()) + " stream other\\uD800");
  EXPECT_EQ(other->close(kNoLimit), Status::Success);
  EXPECT_EQ(Next(), "close stream " + Hex(other->remoteStreamId()));
  heard.end.Await();
}

TEST_F(ServedLink, RefusesStreamsThatAClientOpens) {
  Start({"--refuse-open", "7"});
  const auto client = Connect();
  Heard heard;
  const auto other = client->NewStream(u"other", heard);
  EXPECT_EQ(other->connect({}, client->link, nullptr), Status::AccessDenied);
  EXPECT_EQ(Next(), "refused open " + Hex(other->streamId()) + " stream other");
}

TEST_F(ServedLink, OpensStreamsOfItsOwn) {
  Start();
  const auto client = Connect();
  Heard heard;
  const auto listener =
      std::make_shared<LmIpclibLinkListener>(streams::kEndpoint, [&](const std::shared_ptr<LmIpclibStream>& offered) {
        EXPECT_EQ(offered->streamName(), u"from the service");
        return offered->accept({}, heard.Callback());
      });
  client->link->Listen(listener);
  Order("open from the service");
  EXPECT_THAT(Next(), StartsWith("accepted stream 0x535e1ce5"));
  Order("send hello");
  heard.one.Await();
  EXPECT_THAT(heard.texts, ElementsAre("hello"));
  Order("shutdown");
  heard.end.Await();
}

TEST_F(ServedLink, HearsThatAClientTakesNoStream) {
  Start({"--open", "name"});
  const auto client = Connect();
  EXPECT_THAT(Next(), EndsWith(" status 10"));
}

TEST_F(ServedLink, ClosesAStream) {
  Start();
  const auto client = Connect();
  Order("close");
  client->heard.end.Await();
  // This user did not answer within its callback, and later the stream has no link any more.
  client->AwaitClosed();
  EXPECT_EQ(Next(), "closed link " + Hex(client->link->linkId()));
}

TEST_F(ServedLink, EndsAStreamWithoutAHandshake) {
  Start();
  const auto client = Connect();
  Order("shutdown");
  client->heard.end.Await();
  client->AwaitClosed();
  EXPECT_EQ(client->stream->state(), State::Closed);
}

class WrongTransaction : public ServedLink, public testing::WithParamInterface<std::string> {};

TEST_P(WrongTransaction, EndsTheClientsLink) {
  Start();
  const auto client = Connect();
  Order(GetParam());
  client->heard.end.Await();
  client->AwaitClosed();
  EXPECT_TRUE(client->heard.texts.empty());
  EXPECT_EQ(Next(), "failed link " + Hex(client->link->linkId()));
}

INSTANTIATE_TEST_SUITE_P(, WrongTransaction, testing::Values("wrong-crc", "wrong-sequence", "no-blocks"),
                         [](const auto& wrong) {
                           return wrong.param == "wrong-crc"        ? "Checksum"
                                  : wrong.param == "wrong-sequence" ? "Sequence"
                                                                    : "NoBlocks";
                         });

TEST_F(ServedLink, SendsBlocksOfAnUnknownTypeThatLoseTheRestOfTheirTransaction) {
  Start();
  const auto client = Connect();
  Order("unknown-type");
  Order("send afterwards");
  client->heard.one.Await();
  EXPECT_THAT(client->heard.texts, ElementsAre("afterwards"));
}

TEST_F(ServedLink, TellsTheClientToStop) {
  Start({"--stop"});
  const auto client = Connect();
  client->heard.end.Await();
  client->AwaitClosed();
  EXPECT_TRUE(printed.IsEmpty()) << "a link that stops at the peer's word says nothing more";
}

TEST_F(ServedLink, TellsTheClientOfAnError) {
  Start({"--error"});
  const auto client = Connect();
  client->heard.end.Await();
  client->AwaitClosed();
}

TEST_F(ServedLink, TakesNothingInOnceItIsDeaf) {
  Start({"--deafen"});
  const auto client = Connect();
  client->Send("stays in the channel");
  client->sent.Await();
  client->Send("stays with the client");
  client->link->shutdown();
  client->givenUp.Await();
  client->AwaitClosed();
  EXPECT_TRUE(printed.IsEmpty());
}

TEST_F(ServedLink, HoldsBackTheFirstDataConsumed) {
  Start({"--hold-first-consumed"});
  const auto client = Connect();
  client->Send("hello");
  EXPECT_EQ(client->link->Unsent(), 1u);
  EXPECT_TRUE(printed.IsEmpty());
  Order("consume");
  EXPECT_EQ(Next(), "message" + Of(*client) + " bytes 5");
}

TEST_F(ServedLink, AnswersACloseLate) {
  Start({"--close-answer", "late"});
  const auto client = Connect();
  EXPECT_EQ(client->stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(Next(), "close" + Of(*client));
  EXPECT_EQ(client->stream->state(), State::Closing);
  Order("answer-close");
  client->heard.end.Await();
  EXPECT_EQ(client->stream->state(), State::Closed);
}

TEST_F(ServedLink, NeverAnswersAClose) {
  Start({"--close-answer", "never"});
  const auto client = Connect();
  EXPECT_EQ(client->stream->close(kNoLimit), Status::Success);
  EXPECT_EQ(Next(), "close" + Of(*client));
  // The service is as far as this now: an answer would have come ahead of it.
  Order("open name");
  EXPECT_THAT(Next(), StartsWith("refused stream"));
  EXPECT_EQ(client->stream->state(), State::Closing);
}

TEST_F(ServedLink, DiesOnceTheClientHasComeUp) {
  Start({"--die", "after-answer"});
  const auto client = Connect();
  EXPECT_EQ(Next(), "died");
}

TEST_F(ServedLink, DiesInTheMiddleOfATransaction) {
  Start({"--die", "in-transaction"});
  const auto client = Connect();
  client->Send("hello");
  EXPECT_EQ(Next(), "died");
  EXPECT_TRUE(printed.IsEmpty()) << "nothing was taken in";
}

TEST_F(ServedLink, DiesAtTheOrder) {
  Start();
  const auto client = Connect();
  Order("die");
  EXPECT_EQ(Next(), "died");
}

}  // namespace
}  // namespace service
