#include <memory>
#include <string>
#include <thread>

#include "platform/pipes.h"
#include "tests/ipc/openHandles.h"
#include "tests/ipc/rawTransaction.h"
#include "tests/service/servedClients.h"

namespace service {
namespace {

using namespace std::string_literals;
using ipcTests::RawBlock;
using ipcTests::RawTransaction;

constexpr std::uint32_t kMsg = 6;
constexpr std::uint32_t kClose = 3;
constexpr std::uint32_t kCloseAck = 4;

class RawlyServed : public Served {
 protected:
  [[nodiscard]] std::unique_ptr<RawClient> Connect(
      const support::ConnectRequest& request = RequestOf(RawClient::kLink, RawClient::kStream)) {
    auto client = std::make_unique<RawClient>(*server, request);
    EXPECT_EQ(Next(), "connect stream talk procedure " + std::to_string(request.procedure));
    EXPECT_EQ(
        Next(),
        "asks version 1 link 0x4c00000000000001 flags 0x0 stream 0x5300000000000007 flags 0x0 channel size 65536");
    return client;
  }
  [[nodiscard]] static RawTransaction With(const RawClient& client, std::uint32_t type, const std::string& data,
                                           std::uint32_t flags = 3) {
    return {RawBlock{
        .type = type, .flags = flags, .data = data, .source = RawClient::kStream, .destination = client.Remote()}};
  }
};

TEST_F(RawlyServed, TellsAClientWhatItAsked) {
  Start({"--channel-size", "4096"});
  const auto client = Connect();
  EXPECT_EQ(client->reply.channelSize, 4096);
  EXPECT_EQ(client->reply.connectStatus, 0);
  EXPECT_TRUE(client->reply.hasConnectStatus);
  EXPECT_TRUE(client->reply.hasPeerProcess);
  EXPECT_EQ(client->Remote() >> 56, 0x53u);
  EXPECT_TRUE(RawClient::IsSignalled(client->reply.send.dataConsumed)) << "it may send";
}

TEST_F(RawlyServed, PrintsWhoHasAuthenticated) {
  Start({"--refuse", "7"});
  support::ConnectRequest request = RequestOf(1, 2);
  request.authenticated = true;
  request.streamName = u"a b\n";
  EXPECT_EQ(server->Connect(request).connectStatus, 7);
  EXPECT_EQ(Next(), "connect stream a b\\u000A procedure 0 authenticated");
}

TEST_F(RawlyServed, RefusesWithoutChannels) {
  Start({"--refuse", "7"});
  const auto reply = server->Connect(RequestOf(1, 2));
  EXPECT_EQ(reply.connectStatus, 7);
  EXPECT_TRUE(reply.hasConnectStatus);
  EXPECT_FALSE(reply.hasPeerProcess);
  EXPECT_FALSE(reply.receive.mapping);
  EXPECT_FALSE(reply.send.stop);
}

TEST_F(RawlyServed, LeavesTheStatusAsTheClientPresetIt) {
  Start({"--leave-status-preset"});
  EXPECT_FALSE(server->Connect(RequestOf(1, 2)).hasConnectStatus);
}

TEST_F(RawlyServed, EndsTheCallItselfWithAStatus) {
  Start({"--call-status", "5"});
  EXPECT_EQ(server->Connect(RequestOf(1, 2)).result, 5u);
}

TEST_F(RawlyServed, DiesBeforeItAnswers) {
  Start({"--die", "before-answer"});
  const auto client = Connect();
  EXPECT_EQ(Next(), "died");
}

TEST_F(RawlyServed, SignalsForEachTransactionThatItHasTaken) {
  Start({"--bytes"});
  const auto client = Connect();
  EXPECT_TRUE(RawClient::IsSignalled(client->reply.send.dataConsumed)) << "it may send";
  client->Put(ipcTests::RawTransaction(With(*client, kMsg, "hi")).bytes);
  EXPECT_TRUE(RawClient::IsSignalled(client->reply.send.dataConsumed));
  EXPECT_EQ(Next(), "message stream " + standIn::Hex(client->Remote()) + " bytes 2 6869");
}

TEST_F(RawlyServed, WritesACloseAckByteForByte) {
  Start();
  const auto client = Connect();
  client->ComeUp();
  EXPECT_EQ(Next(), "connected link 0x4c00000000000001");
  client->Put(With(*client, kClose, "").bytes);
  EXPECT_TRUE(RawClient::IsSignalled(client->reply.receive.dataReady));
  const RawTransaction answer{
      RawBlock{.type = kCloseAck, .data = "", .source = client->Remote(), .destination = RawClient::kStream}};
  EXPECT_EQ(client->Incoming(answer.bytes.size()), answer.bytes);
}

// What a client must not do: the service says so, and the client is told.
class BrokenRule : public RawlyServed {
 protected:
  void ExpectFault(const RawClient& client, const std::string& fault) {
    EXPECT_EQ(Next(), "error link 0x4c00000000000001: " + fault);
    EXPECT_TRUE(RawClient::IsSignalled(client.reply.send.error));
    EXPECT_TRUE(RawClient::IsSignalledNow(client.reply.send.dataConsumed)) << "that of the start";
    EXPECT_FALSE(RawClient::IsSignalledNow(client.reply.send.dataConsumed));
  }
};

TEST_F(BrokenRule, IsAWrongChecksum) {
  Start();
  const auto client = Connect();
  auto transaction = With(*client, kMsg, "hi");
  transaction.bytes[4] ^= std::byte{1};
  client->Put(transaction.bytes);
  ExpectFault(*client, "wrong checksum");
}

TEST_F(BrokenRule, IsAnEmptyChannel) {
  Start();
  const auto client = Connect();
  client->Put({});
  ExpectFault(*client, "wrong transaction size 0");
}

TEST_F(BrokenRule, IsAMessageThatDoesNotBegin) {
  Start();
  const auto client = Connect();
  client->Put(With(*client, kMsg, "hi", 2).bytes);
  ExpectFault(*client, "a message that begins within another, or does not begin");
}

TEST_F(BrokenRule, IsAnOpenWithoutAName) {
  Start();
  const auto client = Connect();
  const RawTransaction open{RawBlock{.type = 1, .data = "\2\0\0\0"s, .source = RawClient::kStream, .destination = 0}};
  client->Put(open.bytes);
  ExpectFault(*client, "an Open without a name");
}

TEST_F(RawlyServed, PrintsWhatIsAddressedToNobody) {
  Start();
  const auto client = Connect();
  const RawTransaction stray{RawBlock{.source = RawClient::kStream, .destination = 0x5300000000000099}};
  client->Put(stray.bytes);
  EXPECT_EQ(Next(), "stray Msg from 0x5300000000000007 to 0x5300000000000099");
}

TEST_F(RawlyServed, LearnsByAPipeThatItsClientIsGone) {
  platform::UniquePipe readEnd;
  platform::UniquePipe writeEnd;
  ASSERT_TRUE(platform::CreatePipe(readEnd.put(), writeEnd.put(), nullptr, 0));
  Start();
  support::ConnectRequest request = RequestOf(RawClient::kLink, RawClient::kStream);
  request.procedure = 1;
  request.clientPipe = readEnd.get();
  const auto client = Connect(request);
  readEnd.reset();
  writeEnd.reset();
  EXPECT_EQ(Next(), "client gone link 0x4c00000000000001");
}

TEST_F(RawlyServed, EndsWhenItsInputDoes) {
  Start();
  const auto client = Connect();
  std::thread input([this] { server->InputHasEnded(); });
  server->AwaitEnd();
  input.join();
}

TEST_F(RawlyServed, EndsWhenTheCommandsHaveComeAndNoLinkIsLeft) {
  Start({"--messages", "1"});
  const auto client = Connect();
  client->Put(With(*client, kMsg, "\2\0\0\0\2\0\0\0\0\0\0\0\0\0"s).bytes);
  EXPECT_EQ(Next(), "message stream " + standIn::Hex(client->Remote()) + " bytes 14");
  EXPECT_EQ(Next(), "command 2 url ");
  platform::SetEvent(client->reply.receive.stop);
  server->AwaitEnd();
  EXPECT_EQ(Next(), "closed link 0x4c00000000000001");
}

TEST_F(RawlyServed, KeepsNothingOfLinksThatHaveEnded) {
  Start();
  const auto connectAndClose = [this] {
    const auto client = Connect();
    platform::SetEvent(client->reply.receive.stop);
    EXPECT_EQ(Next(), "closed link 0x4c00000000000001");
  };
  connectAndClose();
  const std::size_t before = ipcTests::OpenHandles();
  constexpr std::size_t kLinks = 40;
  for (std::size_t i = 0; i < kLinks; ++i) connectAndClose();
  // The runtime of one target now and then makes one for itself; a link would leave ten.
  EXPECT_LT(ipcTests::OpenHandles(), before + kLinks);
}

}  // namespace
}  // namespace service
