// The exact words of the traces, and the channels they go to.
#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/streams/streamFixture.h"

namespace streams {
namespace {

// Keeps the lines of one channel, by the operation that they stand in; ids are called by what they belong to.
class Lines final : public quill::log::Sink {
 public:
  void Write(std::int32_t level, const quill::log::Location& location, std::string_view text) override {
    EXPECT_EQ(level, 6);
    of[location.function].push_back(Named(std::string(text)));
  }

  [[nodiscard]] std::string Named(std::string text) const {
    for (const auto& [id, name] : names) {
      for (auto at = text.find(id); at != std::string::npos; at = text.find(id)) text.replace(at, id.size(), name);
    }
    if (const auto at = text.find("msgId: "); at != std::string::npos) {
      const auto end = std::find_if(text.begin() + static_cast<std::ptrdiff_t>(at) + 7, text.end(),
                                    [](char c) { return c < '0' || c > '9'; });
      text.replace(text.begin() + static_cast<std::ptrdiff_t>(at) + 7, end, "M");
    }
    return text;
  }

  std::map<std::string, std::vector<std::string>> of;
  std::vector<std::pair<std::string, std::string>> names;
};

class Traces : public StreamFixture {
 public:
  Traces() {
    const auto loggers = {ipcTrace->stream(), ipcTrace->msg(), ipcTrace->link()};
    const auto sinks = {onStream, onMsg, onLink};
    auto sink = sinks.begin();
    for (const auto& logger : loggers) {
      logger->setLevel(6);
      logger->addSink(*sink++);
    }
  }
  ~Traces() override { ipcTrace->removeAllSinks(); }

  void Name(std::uint64_t id, const std::string& name) const {
    for (const auto& lines : {onStream, onMsg, onLink}) lines->names.emplace_back(fmt::format("{:#x}", id), name);
  }
  // The id was drawn meanwhile.
  void NameBelatedly(std::uint64_t id, const std::string& name) const {
    Name(id, name);
    for (const auto& lines : {onStream, onMsg, onLink}) {
      for (auto& [operation, texts] : lines->of) {
        for (std::string& text : texts) text = lines->Named(text);
      }
    }
  }
  void Forget() const {
    for (const auto& lines : {onStream, onMsg, onLink}) lines->of.clear();
  }

  const std::shared_ptr<Lines> onStream = std::make_shared<Lines>();
  const std::shared_ptr<Lines> onMsg = std::make_shared<Lines>();
  const std::shared_ptr<Lines> onLink = std::make_shared<Lines>();
};

using Texts = std::vector<std::string>;
using Told = std::map<std::string, Texts>;

// The traces of an operation, as it begins and as it ends.
Texts Traced(const std::string& before, const std::string& after, const std::string& status = "") {
  return {"> state: " + before + ", streamId: S",
          "< state: " + after + ", streamId: S" + (status.empty() ? "" : ", status: " + status)};
}
Texts TracedOf(const std::string& message, const std::string& before, const std::string& after) {
  return {"> state: " + before + ", streamId: S, msgId: M, " + message, "< state: " + after + ", streamId: S"};
}
Texts operator+(Texts first, const Texts& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class StreamTraces : public Traces {
 public:
  // A link ends with its last stream, and has more to say than is looked at here.
  StreamTraces() { EXPECT_EQ(link->addStream(other), Status::Success); }
  ~StreamTraces() override { EXPECT_EQ(link->removeStream(other), Status::Success); }

  void Begin() {
    Accept();
    Name(stream->streamId(), "S");
    Forget();
  }
  void ExpectTold(const Told& streams, const Told& messages) const {
    EXPECT_EQ(onStream->of, streams);
    for (const char* ofMessages : {"LmIpclibMsg", "~LmIpclibMsg", "appendData", "sendComplete"}) {
      onMsg->of.erase(ofMessages);
    }
    EXPECT_EQ(onMsg->of, messages);
    Forget();
  }

  const std::shared_ptr<LmIpclibStream> other = NewAcceptor();
};

TEST_F(StreamTraces, OfAConnect) {
  Forget();
  auto status = BeginConnect();
  Answer();
  ASSERT_EQ(status.get(), Status::Success);
  NameBelatedly(stream->streamId(), "S");
  EXPECT_EQ(onStream->of["LmIpclibStream"], Texts{"- state: Init, streamId: S"});
  onStream->of.erase("LmIpclibStream");
  ExpectTold({{"connect", Traced("Init", "Connected", "Success")},
              {"connectExistingLink", Traced("Connecting", "Connecting", "Success")},
              {"completeConnectExistingLink", Traced("Connecting", "Connecting")}},
             {{"recvBlock", Traced("Connecting", "Connecting", "Success")}});
  ASSERT_EQ(stream->completeConnect(), Status::Success);
  ExpectTold({{"completeConnect", Traced("Connected", "Connected", "Success")},
              {"connectedInit", Traced("Connected", "Connected", "Success")}},
             {{"queueDispatch", Traced("Connected", "Connected")}});
}

TEST_F(StreamTraces, OfAnAccept) {
  stream = NewAcceptor();
  Name(stream->streamId(), "S");
  Forget();
  ASSERT_EQ(stream->accept({}, heard.Callback()), Status::Success);
  ExpectTold({{"accept", Traced("Init", "Connected", "Success")}, {"connectedInit", Traced("Init", "Init", "Success")}},
             {{"queueDispatch", Traced("Init", "Init")}});
  stream->shutdown();
}

TEST_F(StreamTraces, OfASend) {
  Begin();
  ASSERT_EQ(Send("x"), Status::Success);
  ExpectTold({}, {{"send", Traced("Connected", "Connected")}});
  EXPECT_EQ(Send(""), Status::InvalidParam);
  ExpectTold({}, {{"send", Traced("Connected", "Connected", "InvalidParam")}});
  pool::RunAll();
  link->TakeSent().back()->sendComplete(Status::Success);
  ExpectTold({}, {{"onSendComplete", TracedOf("msgType: Msg, size: 1", "Connected", "Connected")},
                  {"decrementOustandingSends",
                   {"> state: Connected, streamId: S", "< state: Connected, streamId: S, count: 0"}}});
}

TEST_F(StreamTraces, OfAMessageThatComesIn) {
  Begin();
  Hear(Type::Msg, "hello");
  const Texts ofMessage = TracedOf("msgType: Msg, size: 5", "Connected", "Connected");
  const Texts plain = Traced("Connected", "Connected");
  ExpectTold({}, {{"recvBlock", Traced("Connected", "Connected", "Success")},
                  {"addIncomingMessage", ofMessage},
                  {"deferredDispatch", plain},
                  {"queueDispatch", plain},
                  {"dispatch", plain},
                  {"onProtoMsg", ofMessage}});
}

TEST_F(StreamTraces, OfABlockThatIsRefusedEndAmongTheStreams) {
  Begin();
  EXPECT_EQ((Block{.flags = kLastBlock, .data = "x"}).To(*stream), Status::ProtocolError);
  ExpectTold({{"recvBlock", {"< state: Connected, streamId: S, status: ProtocolError"}}},
             {{"recvBlock", {"> state: Connected, streamId: S"}}});
}

TEST_F(StreamTraces, OfACloseThatIsAnswered) {
  Begin();
  ASSERT_EQ(stream->close(std::chrono::seconds(1)), Status::Success);
  ExpectTold({{"close", Traced("Connected", "Closing", "Success")}, {"startCloseTimer", Traced("Closing", "Closing")}},
             {});
  Hear(Type::CloseAck);
  ExpectTold({{"onProtoCloseAck", Traced("Closing", "Closed")},
              {"closeStream", Traced("Closing", "Closed")},
              {"queueEmptyMsg", Traced("Closed", "Closed")},
              {"shutdownStream", Traced("Closed", "Closed")}},
             {{"recvBlock", Traced("Closing", "Closing", "Success")},
              {"addIncomingMessage", TracedOf("msgType: CloseAck, size: 0", "Closing", "Closing") +
                                         TracedOf("msgType: Msg, size: 0", "Closed", "Closed")},
              {"deferredDispatch", Traced("Closing", "Closing")},
              {"queueDispatch", Traced("Closing", "Closing") + Traced("Closed", "Closed")},
              {"dispatch", Traced("Closing", "Closed")},
              {"onProtoMsg", TracedOf("msgType: Msg, size: 0", "Closed", "Closed")}});
  stream.reset();
  ExpectTold({{"~LmIpclibStream", {"- state: Closed, streamId: S"}}}, {});
}

TEST_F(StreamTraces, OfTheOtherEndsGoToTheStreams) {
  Begin();
  ASSERT_EQ(stream->close(std::chrono::seconds(1)), Status::Success);
  Forget();
  pool::Fire();
  pool::RunAll();
  EXPECT_EQ(onStream->of["onCloseTimerExpired"], Traced("Closing", "Closed"));

  Begin();
  Hear(Type::Close);
  EXPECT_EQ(onStream->of["onProtoClose"], Traced("Connected", "Closing"));

  Begin();
  Hear(Type::Shutdown);
  EXPECT_EQ(onStream->of["onProtoShutdown"], Traced("Connected", "Closed"));
  EXPECT_EQ(onStream->of["shutdown"], Traced("Connected", "Closed"));
}

TEST_F(Traces, OfALink) {
  Name(link->linkId(), "L");
  const auto added = NewAcceptor();
  Name(added->streamId(), "S");
  const auto told = [this](const char* operation) { return std::exchange(onLink->of[operation], {}); };
  const std::string open = "m_state: Connected, linkId: L";
  Forget();
  ASSERT_EQ(link->addStream(added), Status::Success);
  EXPECT_EQ(told("addStream"), (Texts{"> " + open + ", streamId: S", "< " + open + ", status: Success"}));
  ASSERT_EQ(link->eraseStream(added), Status::Success);
  EXPECT_EQ(told("eraseStream"), (Texts{"> " + open + ", streamId: S", "< " + open + ", status: Success"}));
  ASSERT_EQ(link->removeStream(added), Status::NotFound);
  EXPECT_EQ(told("removeStream"), (Texts{"> " + open + ", streamId: S", "< " + open + ", status: NotFound"}));
  EXPECT_EQ(link->getLinkListener(), nullptr);
  EXPECT_EQ(told("getLinkListener"), (Texts{"> " + open, "< " + open}));
  ASSERT_EQ(link->connectWait(), Status::Success);
  EXPECT_EQ(told("connectWait"), (Texts{"> " + open, "< " + open + ", status: Success"}));
  link->notifyConnectWaiters();
  EXPECT_EQ(told("notifyConnectWaiters"), (Texts{"> " + open, "< " + open}));

  const std::string closed = "m_state: Closed, linkId: L";
  link->close();
  EXPECT_EQ(told("close"), (Texts{"> " + open, "< " + closed}));
  EXPECT_EQ(told("shutdownLinkWithCheck"), (Texts{closed + ", success: true"}));
  link->shutdown();
  EXPECT_EQ(told("shutdown"), (Texts{"> " + closed, "< " + closed}));

  const Carrier fresh;
  EXPECT_EQ(told("LmIpclibLink"), (Texts{fmt::format("- m_state: Init, linkId: {:#x}", fresh.linkId())}));
}

TEST_F(Traces, OfALinkThatHasStreamsTellsThatItDoesNotEnd) {
  Name(link->linkId(), "L");
  stream = NewAcceptor();
  const auto other = NewAcceptor();
  ASSERT_EQ(link->addStream(stream), Status::Success);
  ASSERT_EQ(link->addStream(other), Status::Success);
  ASSERT_EQ(link->removeStream(other), Status::Success);
  EXPECT_EQ(onLink->of["shutdownLinkWithCheck"], (Texts{"m_state: Connected, linkId: L, success: false"}));
  ASSERT_EQ(link->removeStream(stream), Status::Success);
}

TEST_F(Traces, OfALinksControlStream) {
  Name(link->Control()->streamId(), "S");
  Forget();
  link->shutdown();
  EXPECT_EQ(onStream->of["stop"], Traced("Connected", "Closed"));
  pool::RunAll();
  EXPECT_EQ(onStream->of["onRecv"], TracedOf("msgType: Msg, size: 0", "Closed", "Closed"));
}

}  // namespace
}  // namespace streams
