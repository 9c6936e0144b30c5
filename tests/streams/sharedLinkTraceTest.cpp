// What a shared-memory link traces, and on which channel.
#include <algorithm>
#include <vector>

#include "lib/ipc/ipclib/lineSink.h"
#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

class SharedLinkTraces : public SharedLink {
 public:
  SharedLinkTraces() {
    for (const auto& [logger, sink] : {std::pair(ipcTrace->link(), onLink), std::pair(ipcTrace->msg(), onMsg)}) {
      logger->setLevel(kTraceLevel);
      logger->addSink(sink);
    }
  }
  ~SharedLinkTraces() override { ipcTrace->removeAllSinks(); }

  // A link that only needs to be started.
  void AttachOnly() {
    peer = std::make_unique<RawPeer>();
    link = std::make_shared<OpenLink>();
    ASSERT_EQ(link->connecting(), Status::Success);
    ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::Success);
    Forget();
  }
  void Forget() const {
    static_cast<void>(onLink->Take());
    static_cast<void>(onMsg->Take());
  }
  // Of one operation, since the last look; the link's id is L. The base class's part of the operation is among them.
  [[nodiscard]] std::vector<std::string> Told(quill::log::LineSink& sink, std::string_view operation) const {
    const std::string id = fmt::format("{:#x}", link->linkId());
    std::vector<std::string> texts;
    for (auto& line : sink.Take()) {
      if (line.function != operation) continue;
      if (const auto at = line.text.find(id); at != std::string::npos) line.text.replace(at, id.size(), "L");
      texts.push_back(line.text);
    }
    return texts;
  }

  const std::shared_ptr<quill::log::LineSink> onLink = std::make_shared<quill::log::LineSink>();
  const std::shared_ptr<quill::log::LineSink> onMsg = std::make_shared<quill::log::LineSink>();
};

TEST_F(SharedLinkTraces, OfAnAttach) {
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  EXPECT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::InvalidState);
  EXPECT_THAT(Told(*onLink, "attach"),
              ElementsAre("> m_state: Init, linkId: L", "< m_state: Init, linkId: L, status: InvalidState"));
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size), Status::Success);
  EXPECT_THAT(Told(*onLink, "attach"),
              ElementsAre("> m_state: Connecting, linkId: L", "< m_state: Connecting, linkId: L, status: Success"));

  link = std::make_shared<OpenLink>();
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, peer->size, {}), Status::Unexpected);
  EXPECT_THAT(Told(*onLink, "attach"),
              ElementsAre("> m_state: Connecting, linkId: L", "< m_state: Error, linkId: L, status: Unexpected"));
}

TEST_F(SharedLinkTraces, OfAStart) {
  AttachOnly();
  unsigned errorCode = 0;
  ASSERT_EQ(link->start(executor, errorCode), Status::Success);
  const std::string id = fmt::format("{:#x}", link->linkId());
  EXPECT_THAT(onLink->TakeTexts(),
              ElementsAre("> m_state: Connecting, linkId: " + id, "> m_state: Connecting, linkId: " + id,
                          "< m_state: Connecting, linkId: " + id + ", status: Success",
                          "< m_state: Connected, linkId: " + id + ", start notification on peer process",
                          "< m_state: Connected, linkId: " + id + ", status: Success"));
}

TEST_F(SharedLinkTraces, OfAStartThatFails) {
  AttachOnly();
  unsigned errorCode = 0;
  ASSERT_EQ(link->start(nullptr, errorCode), Status::Unexpected);
  EXPECT_THAT(Told(*onLink, "start"),
              ElementsAre("> m_state: Connecting, linkId: L", "> m_state: Connecting, linkId: L",
                          "< m_state: Connecting, linkId: L, status: Unexpected",
                          "- m_state: Connecting, linkId: L, status: Unexpected",
                          "< m_state: Closed, linkId: L, status: Unexpected"));
}

TEST_F(SharedLinkTraces, OfSendingGoToTheMessages) {
  Connect();
  Forget();
  ASSERT_EQ(Send(stream, "x"), Status::Success);
  pool::RunAll();
  EXPECT_THAT(Told(*onMsg, "performDeferredSend"),
              ElementsAre("> m_state: Connected, linkId: L", "< m_state: Connected, linkId: L, status: Success"));
  EXPECT_THAT(Told(*onLink, "performDeferredSend"), IsEmpty());
}

TEST_F(SharedLinkTraces, OfReceivingBeginAmongTheMessagesAndEndAmongTheLinks) {
  Connect();
  Forget();
  peer->Put(Of({For(stream, "hello")}), 1);
  EXPECT_THAT(Told(*onMsg, "recv"), ElementsAre("> m_state: Connected, linkId: L"));
  EXPECT_THAT(onLink->TakeTexts(),
              ElementsAre(fmt::format("linkId: {:#x}, trxSeqNo: 1, trxSize: 0x49", link->linkId()),
                          fmt::format("< m_state: Connected, linkId: {:#x}, status: Success", link->linkId())));
  peer->Put(Of({For(stream, "hello")}), 1);
  EXPECT_THAT(Told(*onLink, "recv"), ElementsAre("< m_state: ShuttingDown, linkId: L, status: ProtocolError"));
}

TEST_F(SharedLinkTraces, OfAnEndInOrder) {
  peer = std::make_unique<RawPeer>();
  for (const char* operation : {"stop", "linkStop", "stopWorkers"}) {
    SCOPED_TRACE(operation);
    link = peer->Connect(executor);
    Forget();
    link->close();
    const bool begins = operation == std::string("stop");
    EXPECT_THAT(Told(*onLink, operation),
                ElementsAre(begins ? "> m_state: Connected, linkId: L" : "> m_state: Closed, linkId: L",
                            "< m_state: Closed, linkId: L"));
    pool::RunAll();
  }
}

TEST_F(SharedLinkTraces, OfAFailure) {
  struct {
    const char *operation, *before;
  } constexpr cases[] = {{"linkError", "Connected"}, {"stop", "Error"}, {"stopWorkers", "ShuttingDown"}};
  for (const auto& [operation, before] : cases) {
    SCOPED_TRACE(operation);
    Connect();
    Forget();
    link->shutdown();
    EXPECT_THAT(Told(*onLink, operation),
                ElementsAre(fmt::format("> m_state: {}, linkId: L", before), "< m_state: ShuttingDown, linkId: L"));
    pool::RunAll();
  }
}

TEST_F(SharedLinkTraces, OfItsPipes) {
  link = std::make_shared<OpenLink>();
  ASSERT_TRUE(link->getReadPipeReference());
  EXPECT_THAT(Told(*onLink, "getReadPipeReference"),
              ElementsAre("> m_state: Init, linkId: L", "< m_state: Init, linkId: L"));
  EXPECT_FALSE(link->blockOnReadClientPipe());
  EXPECT_THAT(Told(*onLink, "blockOnReadClientPipe"),
              ElementsAre("> m_state: Init, linkId: L", "< m_state: Init, linkId: L, status: Unexpected"));
}

TEST_F(SharedLinkTraces, OfItsLast) {
  link = std::make_shared<OpenLink>();
  const std::string last = fmt::format("- m_state: Init, linkId: {:#x}", link->linkId());
  Forget();
  link.reset();
  EXPECT_THAT(onLink->TakeTexts(), ElementsAre(last));
}

}  // namespace
}  // namespace streams
