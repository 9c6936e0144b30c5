#include <optional>

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

TEST_F(IpcClient, WithAnyOptionWantsTheServiceToProveItself) {
  for (const int option : {1, 2, -1}) {
    Talker other;
    EXPECT_EQ(other.ConnectToStream(kEndpoint, option), Status::Success);
    EXPECT_EQ(service.Asked().back(), StreamFlags(265));
  }
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

// Lets the service speak between the two steps of a connect, and sees its word come in.
class SpeaksEarly final : public quill::log::Sink {
 public:
  SpeaksEarly(Service& service, Talker& client) : service_(service), client_(client) {}
  void Write(std::int32_t, const quill::log::Location& location, std::string_view text) override {
    const std::string_view function = location.function;
    if (function == "addIncomingMessage" && text.ends_with("msgType: Msg, size: 5")) came_.Give();
    if (location.path != "lib\\ipc\\ipclib\\ipclib" || function != "connect" || !text.starts_with("<")) return;
    service_.Send("early");
    came_.Await();
    EXPECT_THAT(client_.Heard(), IsEmpty());
  }

 private:
  Service& service_;
  Talker& client_;
  support::Signal came_;
};

TEST_F(IpcClient, HearsNothingUntilItKeepsItsStream) {
  quill::ipc::ipcTrace->attach(std::make_shared<SpeaksEarly>(service, client));
  Connect();
  client.came.Await();
  EXPECT_THAT(client.Heard(), ElementsAre("early"));
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

// Notes the streams that it is to send on.
class NotesItsSends final : public client::LmIpcClient {
 public:
  ~NotesItsSends() override { Disconnect(); }
  int ReservedOperation() override { return 0; }
  void OnMessage(const std::uint8_t*, std::uint32_t) override {}
  using LmIpcClient::SendMsg;
  int SendMsg(std::uint64_t streamId, const std::uint8_t* data, std::uint32_t size) override {
    asked.push_back(streamId);
    return LmIpcClient::SendMsg(answer.value_or(streamId), data, size);
  }

  std::vector<std::uint64_t> asked;
  std::optional<std::uint64_t> answer;
};

TEST_F(IpcClient, SendsByTheOperationThatAClassMayReplace) {
  NotesItsSends notes;
  const std::uint8_t letter = 'x';
  EXPECT_EQ(notes.SendMsg(&letter, 1), 0);
  EXPECT_THAT(notes.asked, IsEmpty()) << "it is not connected";
  ASSERT_EQ(notes.ConnectToStream(kEndpoint, 0), Status::Success);
  const auto lines = logged.lines->Take();
  EXPECT_NE(notes.SendMsg(&letter, 1), 0);
  EXPECT_EQ(service.NextMessage(), "x");
  ASSERT_EQ(notes.asked.size(), 1u);
  EXPECT_TRUE(lines.back().ends_with("StreamId=" + std::to_string(notes.asked[0]) + ".")) << lines.back();
  notes.answer = 4711;
  EXPECT_NE(notes.SendMsg(&letter, 1), 0) << "there is one stream, whatever the number says";
  EXPECT_EQ(service.NextMessage(), "x");
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
  EXPECT_NE(client.Ipclib(), nullptr);
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_EQ(client.Ipclib(), nullptr) << "it has kept the stream until now";
  EXPECT_THAT(client.Heard(), IsEmpty());
}

TEST_F(IpcClient, HandsAMessageOnWhateverItsStatus) {
  Connect();
  service.Send("hello");
  client.came.Await();
  const auto message =
      std::make_shared<LmIpclibMsg>(quill::ipc::LmIpclibMsgType::Msg, 0, Status::AccessDenied, 1, 2, 2);
  ASSERT_EQ(message->appendData(2, reinterpret_cast<const std::byte*>("hi")), Status::Success);
  message->setStream(client.Stream());
  client.ReceiveCB(Status::StreamClosed, message);
  EXPECT_THAT(client.Heard(), ElementsAre("hello", "hi"));
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

TEST_F(IpcClient, LogsEachLineFromItsLevelOn) {
  const auto linesAt = [&](int level, const std::function<void()>& what) {
    runtime::gLogLevel = level;
    what();
    return logged.lines->Take().size();
  };
  const auto failsToSend = [&] { static_cast<void>(client.Send("")); };
  EXPECT_EQ(linesAt(0, failsToSend), 0u);
  EXPECT_EQ(linesAt(1, failsToSend), 1u);
  for (const int level : {2, 3}) {
    Talker other;
    const auto connects = [&] { EXPECT_EQ(other.ConnectToStream(kEndpoint, 0), Status::Success); };
    EXPECT_EQ(linesAt(level, connects), level == 3 ? 1u : 0u);
    runtime::gLogLevel = 0;
  }
  Connect();
  const auto hears = [&] {
    service.Send("hello");
    client.came.Await();
  };
  EXPECT_EQ(linesAt(4, hears), 0u);
  EXPECT_EQ(linesAt(5, hears), 1u);
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
