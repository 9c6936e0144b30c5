#include "lib/ipc/ipclib/ipclibTrace.h"
#include "tests/client/clientFixture.h"
#include "tests/ipc/openHandles.h"

namespace clientTests {
namespace {

class IpcClient : public testing::Test {
 protected:
  void Connect(int option = 0) { ASSERT_EQ(client.ConnectToStream(kEndpoint, option), Status::Success); }

  Service service;
  Logged logged;
  ReplacedCalls calls;
  Talker client;
};

constexpr const char* kId = "[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+";

TEST_F(IpcClient, ConnectsByAStreamThatIsNamedByANewId) {
  Connect();
  EXPECT_THAT(service.Asked(), ElementsAre(StreamFlags(9)));
  ASSERT_EQ(service.Names().size(), 1u);
  const std::string name = support::Narrow(service.Names()[0]);
  EXPECT_EQ(name.size(), 36u);
  EXPECT_THAT(name, Matches(kId));
  EXPECT_THAT(logged.lines->Take(), ElementsAre(Matches("I LmIpcClient::ConnectToStream\\(\\): Connected to Ipc "
                                                        "stream, StreamName=" +
                                                        name + ", StreamId=[0-9]+\\.")));
  Talker other;
  EXPECT_EQ(other.ConnectToStream(kEndpoint, 0), Status::Success);
  EXPECT_NE(service.Names()[0], service.Names()[1]);
  EXPECT_EQ(service.Asked().size(), 2u) << "no two clients share a library";
}

TEST_F(IpcClient, WithAnOptionWantsTheServiceToProveItself) {
  Connect(1);
  EXPECT_THAT(service.Asked(), ElementsAre(StreamFlags(265)));
}

TEST_F(IpcClient, WaitsForNoService) {
  Connect();
  ASSERT_EQ(service.Waits().size(), 1u);
  EXPECT_EQ(service.Waits()[0].timeoutMs, 0u);
  EXPECT_FALSE(service.Waits()[0].abortEvent);
}

TEST(IpcClientName, IsEmptyWhenThereIsNoId) {
  for (bool ReplacedCalls::*missing : {&ReplacedCalls::noIds, &ReplacedCalls::noIdTexts}) {
    Service service;
    ReplacedCalls calls;
    calls.*missing = true;
    Talker client;
    EXPECT_EQ(client.ConnectToStream(kEndpoint, 0), Status::Success);
    EXPECT_THAT(service.Names(), ElementsAre(u""));
  }
}

TEST_F(IpcClient, WithoutALibraryFailsAndMayTryAgain) {
  calls.noCleanupGroup = true;
  EXPECT_EQ(client.ConnectToStream(kEndpoint, 0), Status::Unexpected);
  EXPECT_THAT(logged.lines->Take(), ElementsAre("E LmIpcClient::ConnectToStream(): Failed to initialize Ipclib."));
  EXPECT_EQ(client.Ipclib(), nullptr);
  EXPECT_EQ(client.CloseStream(), Status::Success);
  calls.noCleanupGroup = false;
  Connect();
}

TEST_F(IpcClient, ThatIsRefusedTellsTheStatus) {
  service.answers = [] { return Status::AccessDenied; };
  EXPECT_EQ(client.ConnectToStream(kEndpoint, 0), Status::AccessDenied);
  EXPECT_THAT(logged.lines->Take(), ElementsAre("E LmIpcClient::ConnectToStream(): Failed to connect to the Ipc "
                                                "stream, status=7."));
  EXPECT_EQ(client.Send("x"), 0);
  EXPECT_EQ(client.CloseStream(), Status::Success);
}

TEST_F(IpcClient, ThatReachesNobodyTellsThat) {
  service.isReachable = false;
  EXPECT_EQ(client.ConnectToStream(kEndpoint, 0), Status::NotFound);
  EXPECT_THAT(logged.lines->Take(), ElementsAre("E LmIpcClient::ConnectToStream(): Failed to connect to the Ipc "
                                                "stream, status=10."));
}

// Ends the library between the two steps of a connect.
class EndsTheLibrary final : public quill::log::Sink {
 public:
  explicit EndsTheLibrary(Talker& client) : client_(client) {}
  void Write(std::int32_t, const quill::log::Location& location, std::string_view text) override {
    if (location.path != "lib\\ipc\\ipclib\\ipclib" || std::string_view(location.function) != "connect") return;
    if (text.starts_with("<")) static_cast<void>(client_.Ipclib()->uninit());
  }

 private:
  Talker& client_;
};

TEST(IpcClientWhoseStreamEndsEarly, IsNotConnected) {
  const Service service;
  const Logged logged;
  Talker client(std::chrono::milliseconds(0));
  quill::ipc::ipcTrace->attach(std::make_shared<EndsTheLibrary>(client));
  EXPECT_EQ(client.ConnectToStream(kEndpoint, 0), Status::InvalidState);
  EXPECT_THAT(logged.lines->Take(),
              ElementsAre("E LmIpcClient::ConnectToStream(): Failed to comple connection, status=8."));
  EXPECT_EQ(client.Send("x"), 0);
  EXPECT_THAT(logged.lines->Take(),
              ElementsAre("E LmIpcClient::SendMsg(): The client is not conntected before send message."));
  EXPECT_NE(client.Ipclib(), nullptr);
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_EQ(client.Ipclib(), nullptr);
}

TEST_F(IpcClient, SendsNothingBeforeItIsConnected) {
  EXPECT_EQ(client.Send("x"), 0);
  EXPECT_EQ(client.SendMsg(7, nullptr, 0), 0) << "the other operation looks for itself";
  const std::string line = "E LmIpcClient::SendMsg(): The client is not conntected before send message.";
  EXPECT_THAT(logged.lines->Take(), ElementsAre(line, line));
}

TEST_F(IpcClient, SendsACopy) {
  Connect();
  std::string text(100'000, 'a');
  EXPECT_NE(client.Send(text), 0);
  text.assign(text.size(), 'b');
  EXPECT_EQ(service.NextMessage(), std::string(100'000, 'a'));
  EXPECT_NE(client.Send("two"), 0);
  EXPECT_EQ(service.NextMessage(), "two");
}

// An empty message would be the end of the stream, and that is for the stream to say.
TEST_F(IpcClient, SendsNoEmptyMessage) {
  Connect();
  static_cast<void>(logged.lines->Take());
  EXPECT_EQ(client.Send(""), 0);
  EXPECT_THAT(logged.lines->Take(), ElementsAre("E LmIpcClient::SendMsg(): Message delivery failed, status=5."));
}

TEST_F(IpcClient, SendsNothingOnAStreamThatHasEnded) {
  Connect();
  service.CloseStreams();
  client.ended.Await();
  static_cast<void>(logged.lines->Take());
  EXPECT_EQ(client.Send("x"), 0);
  EXPECT_THAT(logged.lines->Take(), ElementsAre("E LmIpcClient::SendMsg(): Message delivery failed, status=8."));
}

TEST_F(IpcClient, SendsNothingBehindItsClose) {
  Connect();
  EXPECT_EQ(client.CloseStream(), Status::Success);
  static_cast<void>(logged.lines->Take());
  EXPECT_EQ(client.Send("x"), 0);
  EXPECT_THAT(logged.lines->Take(),
              ElementsAre("E LmIpcClient::SendMsg(): The client is not conntected before send message."));
}

TEST(IpcClientOfABusyService, TellsWhatWasNotDelivered) {
  Service service;
  service.isThere = false;
  const Logged logged;
  Talker client(std::chrono::milliseconds(0));
  ASSERT_EQ(client.ConnectToStream(kEndpoint, 0), Status::Success);
  EXPECT_NE(client.Send("nobody reads this"), 0);
  static_cast<void>(logged.lines->Take());
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_THAT(logged.lines->Take(), testing::Contains(Matches("E LmIpcClient::SendMsg::<lambda_1>::operator "
                                                              "\\(\\)\\(\\): Message delivery failed, "
                                                              "streamId=[0-9]+\\.")));
}

TEST_F(IpcClient, HandsOnWhatComesIn) {
  Connect();
  static_cast<void>(logged.lines->Take());
  service.Send("hello");
  client.came.Await();
  EXPECT_THAT(client.Heard(), ElementsAre("hello"));
  EXPECT_THAT(logged.lines->Take(),
              ElementsAre(Matches(std::string("T LmIpcClient::ReceiveCB\\(\\): Receive message from streamName=") +
                                  kId + ", Id=[0-9]+, dataSize=5\\.")));
}

TEST_F(IpcClient, ClosesWhenTheServiceDoes) {
  Connect();
  static_cast<void>(logged.lines->Take());
  service.CloseStreams();
  client.ended.Await();
  EXPECT_THAT(logged.lines->Take(),
              ElementsAre(Matches(std::string("I LmIpcClient::ReceiveCB\\(\\): Receive zero size data, going to "
                                              "close stream, streamName=") +
                                  kId + ", Id=[0-9]+\\.")));
  service.AwaitLinksClosed();
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_THAT(client.Heard(), IsEmpty());
}

// A message as no stream makes it: of some size, and without its bytes.
TEST_F(IpcClient, DropsAMessageWithoutBytes) {
  Connect();
  service.Send("hello");
  client.came.Await();
  static_cast<void>(logged.lines->Take());
  const auto message = std::make_shared<LmIpclibMsg>(quill::ipc::LmIpclibMsgType::Msg, 0, Status::Success, 1, 2, 5);
  message->setStream(client.Stream());
  client.ReceiveCB(Status::AccessDenied, message);
  EXPECT_THAT(client.Heard(), ElementsAre("hello"));
  EXPECT_THAT(logged.lines->Take(), ElementsAre(Matches(std::string("E LmIpcClient::ReceiveCB\\(\\): Stream "
                                                                    "buffer is empty, streamName=") +
                                                        kId + ", Id=[0-9]+\\.")));
}

TEST_F(IpcClient, ClosesOnceAndThenAgainAtOnce) {
  EXPECT_EQ(client.CloseStream(), Status::Success) << "there is nothing yet";
  Connect();
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_EQ(client.Ipclib(), nullptr);
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_EQ(service.NextMessage(), "<end>");
}

TEST(IpcClientWhoseStreamIsClosing, KeepsEverythingUntilItGoes) {
  Service service;
  service.closesInTurn = false;
  const Logged logged;
  {
    Talker client(std::chrono::milliseconds(0));
    ASSERT_EQ(client.ConnectToStream(kEndpoint, 0), Status::Success);
    service.Send("hello");
    client.came.Await();
    EXPECT_EQ(client.Stream()->close(std::chrono::milliseconds::max()), Status::Success);
    static_cast<void>(logged.lines->Take());
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(client.CloseStream(), Status::InvalidState);
      EXPECT_THAT(logged.lines->Take(),
                  ElementsAre(Matches(std::string("E LmIpcClient::CloseStream\\(\\): Failed to close Ipc, "
                                                  "StreamName=") +
                                      kId + ", StreamId=[0-9]+ status=8\\.")));
      EXPECT_NE(client.Ipclib(), nullptr);
    }
  }
  service.AwaitLinksClosed();
}

TEST_F(IpcClient, LogsNothingThatIsNotWanted) {
  runtime::gLogLevel = 0;
  EXPECT_EQ(client.Send("x"), 0);
  Connect();
  EXPECT_THAT(logged.lines->Take(), IsEmpty());
  runtime::gLogLevel = 4;
  service.Send("hello");
  client.came.Await();
  EXPECT_THAT(logged.lines->Take(), IsEmpty());
  EXPECT_EQ(client.CloseStream(), Status::Success);
}

TEST(IpcClientThatIsLetGo, LeavesNothingOpen) {
  const auto whole = [] {
    Service service;
    Talker client;
    EXPECT_EQ(client.ConnectToStream(kEndpoint, 0), Status::Success);
    EXPECT_NE(client.Send("x"), 0);
  };
  EXPECT_TRUE(ipcTests::LeavesNoHandleOpen(whole));
}

}  // namespace
}  // namespace clientTests
