#include "lib/ipc/ipclib/ipclibListener.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lib/ipc/ipclib/createLink.h"
#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/lineSink.h"
#include "tests/ipc/endpoint.h"

namespace {

using namespace quill::ipc;
using ipcTests::kEndpoint;
using State = LmIpclibListener::State;
using Status = LmIpcStatusCode;
using testing::ElementsAre;
using testing::IsEmpty;

// A way of being reached that writes down its close.
class Way final : public LmIpclibLinkListener {
 public:
  Way(int number, Status status, std::vector<int>& closed)
      : LmIpclibLinkListener(kEndpoint, nullptr), number_(number), status_(status), closed_(closed) {}
  LmIpcStatusCode close() override {
    closed_.push_back(number_);
    return status_;
  }

 private:
  const int number_;
  const Status status_;
  std::vector<int>& closed_;
};

class Listener : public testing::Test {
 protected:
  LmIpclibListener Make(State state, const std::vector<Status>& ways = {}) {
    LmIpclibListener::LinkListeners linkListeners;
    for (const Status status : ways) {
      linkListeners.push_back(std::make_shared<Way>(static_cast<int>(linkListeners.size()), status, closed));
    }
    return {kEndpoint, state, linkListeners,
            [this](LmIpclibListener& listener) { toldOf.push_back(listener.state()); }};
  }

  std::vector<int> closed;
  std::vector<State> toldOf;
};

TEST(ListenerState, PrintsItsName) {
  std::vector<std::string> names;
  for (std::uint32_t state = 0; state < 8; ++state) names.emplace_back(NameOf(static_cast<State>(state)));
  EXPECT_THAT(names,
              ElementsAre("Init", "Starting", "Listening", "Accepting", "Closing", "Closed", "Error", "unknown"));
}

TEST_F(Listener, ThatListensClosesEveryWayInTheirOrder) {
  for (const State state : {State::Listening, State::Accepting}) {
    LmIpclibListener listener = Make(state, {Status::Success, Status::Success});
    EXPECT_EQ(listener.close(), Status::Success);
    EXPECT_EQ(listener.state(), State::Closed);
  }
  EXPECT_THAT(closed, ElementsAre(0, 1, 0, 1));
  EXPECT_THAT(toldOf, ElementsAre(State::Closed, State::Closed));
}

TEST_F(Listener, InAnyOtherStateIsNotClosed) {
  for (const State state : {State::Init, State::Starting, State::Closing, State::Closed, State::Error}) {
    LmIpclibListener listener = Make(state, {Status::Success});
    EXPECT_EQ(listener.close(), Status::InvalidState) << NameOf(state);
    EXPECT_EQ(listener.state(), state);
  }
  EXPECT_THAT(closed, IsEmpty());
  EXPECT_THAT(toldOf, IsEmpty());
}

TEST_F(Listener, IsClosedOnce) {
  LmIpclibListener listener = Make(State::Listening, {Status::Success});
  EXPECT_EQ(listener.close(), Status::Success);
  EXPECT_EQ(listener.close(), Status::InvalidState);
  EXPECT_THAT(closed, ElementsAre(0));
  EXPECT_EQ(toldOf.size(), 1u);
}

TEST_F(Listener, ClosesTheOtherWaysBehindOneThatFailsAndEndsWithTheFirstFailure) {
  LmIpclibListener listener =
      Make(State::Accepting, {Status::Success, Status::AccessDenied, Status::OutOfMemory, Status::Success});
  EXPECT_EQ(listener.close(), Status::AccessDenied);
  EXPECT_EQ(listener.state(), State::Error);
  EXPECT_THAT(closed, ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(toldOf, ElementsAre(State::Error));
}

// Looks at its listener as it is closed.
class LooksBack final : public LmIpclibLinkListener {
 public:
  explicit LooksBack(const std::optional<LmIpclibListener>& listener)
      : LmIpclibLinkListener(kEndpoint, nullptr), listener_(listener) {}
  LmIpcStatusCode close() override {
    seen = listener_->state();
    return Status::Success;
  }
  State seen = State::Init;

 private:
  const std::optional<LmIpclibListener>& listener_;
};

TEST_F(Listener, IsClosingWithoutItsLockWhileItsWaysAreClosed) {
  std::optional<LmIpclibListener> listener;
  const auto way = std::make_shared<LooksBack>(listener);
  listener.emplace(kEndpoint, State::Listening, LmIpclibListener::LinkListeners{way}, [](LmIpclibListener&) {});
  EXPECT_EQ(listener->close(), Status::Success);
  EXPECT_EQ(way->seen, State::Closing);
}

TEST_F(Listener, LetsGoOfWhatItCalls) {
  const auto kept = std::make_shared<int>();
  const auto way = std::make_shared<Way>(0, Status::Success, closed);
  LmIpclibListener listener(kEndpoint, State::Listening, {way}, [kept](LmIpclibListener&) {});
  EXPECT_EQ(listener.close(), Status::Success);
  EXPECT_EQ(kept.use_count(), 1);
  EXPECT_EQ(way.use_count(), 1);
}

TEST_F(Listener, WithNobodyToTellThrowsWhenItIsClosed) {
  LmIpclibListener listener(kEndpoint, State::Listening, {}, nullptr);
  EXPECT_THROW(static_cast<void>(listener.close()), std::bad_function_call);
  EXPECT_EQ(listener.state(), State::Closed);
}

TEST_F(Listener, IsTraced) {
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  LmIpclibListener listener = Make(State::Accepting, {Status::AccessDenied});
  static_cast<void>(listener.close());
  static_cast<void>(listener.close());
  EXPECT_THAT(sink->TakeTexts(), ElementsAre("> state: Accepting, ep: {875AC244-B80A-420E-90A2-9C69DFD8E728}",
                                             "< state: Error, status: AccessDenied",
                                             "> state: Error, ep: {875AC244-B80A-420E-90A2-9C69DFD8E728}",
                                             "< state: Error, status: InvalidState"));
  ipcTrace->removeAllSinks();
  for (const auto& logger :
       {ipcTrace->lib(), ipcTrace->listener(), ipcTrace->link(), ipcTrace->stream(), ipcTrace->msg()}) {
    logger->setLevel(4);
  }
}

TEST(LinkListener, HoldsNothingThatItHadToClose) {
  LmIpclibLinkListener listener(kEndpoint, nullptr);
  EXPECT_EQ(listener.close(), Status::Success);
}

TEST(LinkListener, ReturnsWhatItsReactionToAStreamSays) {
  const auto sink = std::make_shared<quill::log::LineSink>();
  std::vector<std::shared_ptr<LmIpclibStream>> offered;
  Status answer = Status::Success;
  const LmIpclibLinkListener listener(kEndpoint, [&](const std::shared_ptr<LmIpclibStream>& stream) {
    offered.push_back(stream);
    return answer;
  });
  const auto stream = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(),
                                                       std::weak_ptr<quill::task::TaskExecutor>(), nullptr);
  ipcTrace->listener()->addSink(sink);
  ipcTrace->listener()->setLevel(kTraceLevel);
  EXPECT_EQ(listener.connectStream(stream, true), Status::Success);
  answer = Status::AccessDenied;
  EXPECT_EQ(listener.connectStream(stream, false), Status::AccessDenied);
  EXPECT_THAT(offered, ElementsAre(stream, stream));
  const std::string begins =
      fmt::format("> ep: {{875AC244-B80A-420E-90A2-9C69DFD8E728}}, streamId: {:#x}", stream->streamId());
  EXPECT_THAT(sink->TakeTexts(), ElementsAre(begins + ", onAcceptSendOpenAck: true", "< status: Success",
                                             begins + ", onAcceptSendOpenAck: false", "< status: AccessDenied"));
  ipcTrace->removeAllSinks();
  ipcTrace->listener()->setLevel(4);
}

TEST(LinkListener, WithoutAReactionThrows) {
  const LmIpclibLinkListener listener(kEndpoint, nullptr);
  const auto stream = std::make_shared<LmIpclibStream>(kEndpoint, u"s", StreamFlags(),
                                                       std::weak_ptr<quill::task::TaskExecutor>(), nullptr);
  EXPECT_THROW(static_cast<void>(listener.connectStream(stream, true)), std::bad_function_call);
}

TEST(CreateLink, MakesALinkOverSharedMemoryInInit) {
  int stopping = 0;
  int closed = 0;
  const auto link = createLink(
      kEndpoint, 0x8109, [&](LmIpclibLink&) { ++stopping; }, [&](LmIpclibLink&) { ++closed; });
  ASSERT_NE(dynamic_cast<LmIpclibLinkSharedMemWin*>(link.get()), nullptr);
  EXPECT_EQ(link->state(), LmIpclibLink::State::Init);
  EXPECT_EQ(link->endpoint(), kEndpoint);
  EXPECT_EQ(link->flags(), 0x8109u);
  EXPECT_EQ(link->weak_from_this().lock(), link) << "it knows itself";
  link->shutdown();
  EXPECT_EQ(stopping, 1);
  EXPECT_EQ(closed, 1);
}

}  // namespace
