// No lock is held while a user's code runs: whatever can be called is called from within whatever calls a user. Where
// a lock is held, the thread of the callback stands still, or the other side waits for it.
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <functional>
#include <future>
#include <ostream>
#include <string_view>

#include "tests/conversations/joined.h"

namespace conversations {
namespace {

// What a callback has in hand.
struct Hand {
  const Joined& joined;
  std::size_t side;
  std::shared_ptr<LmIpclibStream> stream;

  [[nodiscard]] OpenLink& Link() const { return *joined.links[side]; }
  [[nodiscard]] std::shared_ptr<LmIpclibStream> NewStream() const {
    return joined.NewStream([](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  }
};

// A whole conversation, where the link still takes one: the other side must be able to answer.
void Converse(const Hand& hand) {
  support::Signal answer;
  support::Signal end;
  const auto stream = hand.joined.NewStream(
      [&](Status, const std::shared_ptr<LmIpclibMsg>& message) { (message->size() == 0 ? end : answer).Give(); });
  if (stream->connect({}, hand.joined.links[hand.side], nullptr) != Status::Success) return;
  if (stream->completeConnect() != Status::Success) return;
  if (SendText(*stream, "within") == Status::Success) answer.Await();
  static_cast<void>(stream->close(kNoLimit));
  end.Await();
}

struct Path {
  std::string_view tells;
  void (*take)(const Hand&);

  friend std::ostream& operator<<(std::ostream& out, const Path& path) { return out << path.tells; }
};

constexpr Path kPaths[] = {
    {"a conversation", Converse},
    {"send", [](const Hand& hand) { static_cast<void>(SendText(*hand.stream, "more")); }},
    {"close without a limit", [](const Hand& hand) { static_cast<void>(hand.stream->close(kNoLimit)); }},
    {"close with a limit", [](const Hand& hand) { static_cast<void>(hand.stream->close(std::chrono::seconds(1))); }},
    {"shutdown", [](const Hand& hand) { hand.stream->shutdown(); }},
    {"connect again", [](const Hand& hand) { static_cast<void>(hand.stream->connect({}, nullptr, nullptr)); }},
    {"completeConnect", [](const Hand& hand) { static_cast<void>(hand.stream->completeConnect()); }},
    {"deferredDispatch", [](const Hand& hand) { hand.stream->deferredDispatch(); }},
    {"accept and shut down",
     [](const Hand& hand) {
       const auto other = hand.NewStream();
       EXPECT_EQ(other->accept({}, [](Status, const std::shared_ptr<LmIpclibMsg>&) {}), Status::Success);
       other->shutdown();
     }},
    {"recvBlock", [](const Hand& hand) { EXPECT_EQ(hand.NewStream()->recvBlock({}, nullptr), Status::InvalidState); }},
    {"what the stream says of itself",
     [](const Hand& hand) {
       EXPECT_EQ(hand.stream->streamId() >> 56, 0x53u);
       EXPECT_EQ(hand.stream->streamName(), u"talk");
       EXPECT_EQ(hand.stream->endpoint(), streams::kEndpoint);
       EXPECT_LE(hand.stream->state(), State::Closed);
       EXPECT_NE(hand.stream->remoteStreamId(), 0u);
       EXPECT_EQ(hand.stream->flags(), StreamFlags());
       static_cast<void>(hand.stream->outstandingSends());
     }},
    {"the link's close", [](const Hand& hand) { hand.Link().close(); }},
    {"the link's shutdown", [](const Hand& hand) { hand.Link().shutdown(); }},
    {"linkError", [](const Hand& hand) { hand.Link().linkError(); }},
    {"the link's send",
     [](const Hand& hand) {
       static_cast<void>(hand.Link().send(
           std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Shutdown, 0, Status::Success, nullptr, 1, 2, 0, nullptr,
                                         [](Status, const std::shared_ptr<LmIpclibMsg>&) {})));
     }},
    {"addStream and eraseStream",
     [](const Hand& hand) {
       const auto other = hand.NewStream();
       if (hand.Link().addStream(other) == Status::Success) {
         EXPECT_EQ(hand.Link().eraseStream(other), Status::Success);
       }
     }},
    {"addStream and removeStream",
     [](const Hand& hand) {
       const auto other = hand.NewStream();
       if (hand.Link().addStream(other) == Status::Success) {
         EXPECT_EQ(hand.Link().removeStream(other), Status::Success);
       }
     }},
    {"connecting", [](const Hand& hand) { EXPECT_EQ(hand.Link().connecting(), Status::InvalidState); }},
    {"connectWait", [](const Hand& hand) { static_cast<void>(hand.Link().connectWait()); }},
    {"notifyConnectWaiters", [](const Hand& hand) { hand.Link().notifyConnectWaiters(); }},
    {"getLinkListener", [](const Hand& hand) { EXPECT_NE(hand.Link().getLinkListener(), nullptr); }},
    {"getReadPipeReference", [](const Hand& hand) { EXPECT_TRUE(hand.Link().getReadPipeReference()); }},
    {"blockOnReadClientPipe", [](const Hand& hand) { EXPECT_FALSE(hand.Link().blockOnReadClientPipe()); }},
    {"stopWorkers", [](const Hand& hand) { hand.Link().stopWorkers(); }},
};

// Takes one path, in the first callback of the kind that a test is about.
class Taker {
 public:
  explicit Taker(const Path& path) : path_(path) {}
  void Take(const Hand& hand) {
    if (isTaken_.exchange(true)) return;
    path_.take(hand);
    taken.Give();
  }
  support::Signal taken;

 private:
  const Path& path_;
  std::atomic<bool> isTaken_ = false;
};

class WithinCallbacks : public testing::TestWithParam<Path> {
 public:
  Taker taker{GetParam()};
};

TEST_P(WithinCallbacks, OfAMessage) {
  std::shared_ptr<LmIpclibStream> stream;
  Joined joined;
  joined.Listen(0, Echo());
  joined.Listen(1, Echo());
  stream = joined.Connect(0, [&](Status, const std::shared_ptr<LmIpclibMsg>&) { taker.Take({joined, 0, stream}); });
  ASSERT_EQ(SendText(*stream, "begin"), Status::Success);
  taker.taken.Await();
}

TEST_P(WithinCallbacks, OfTheEmptyMessage) {
  std::shared_ptr<LmIpclibStream> stream;
  Joined joined;
  joined.Listen(0, Echo());
  joined.Listen(1, Echo());
  const auto keeper = joined.Connect(0, [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  stream = joined.Connect(0, [&](Status, const std::shared_ptr<LmIpclibMsg>&) { taker.Take({joined, 0, stream}); });
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  taker.taken.Await();
}

TEST_P(WithinCallbacks, OfTheEmptyMessageOfAStreamThatThePeerHasClosed) {
  std::shared_ptr<LmIpclibStream> accepted;
  Joined joined;
  joined.Listen(0, Echo());
  joined.Listen(1, [&](const std::shared_ptr<LmIpclibStream>& stream) {
    if (accepted) return Echo()(stream);
    accepted = stream;
    return stream->accept({}, [&](Status, const std::shared_ptr<LmIpclibMsg>&) { taker.Take({joined, 1, accepted}); });
  });
  const auto stream = joined.Connect(0, [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  const auto keeper = joined.Connect(0, [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  ASSERT_EQ(stream->close(kNoLimit), Status::Success);
  taker.taken.Await();
}

TEST_P(WithinCallbacks, OfASendThatIsOnItsWay) {
  Joined joined;
  joined.Listen(0, Echo());
  joined.Listen(1, Echo());
  const auto stream = joined.Connect(0, [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  ASSERT_EQ(SendText(*stream, "begin",
                     [&](Status status) {
                       EXPECT_EQ(status, Status::Success);
                       taker.Take({joined, 0, stream});
                     }),
            Status::Success);
  taker.taken.Await();
}

TEST_P(WithinCallbacks, OfASendThatTheLinkGivesUp) {
  Joined joined(4096);
  joined.Listen(0, Echo());
  joined.Listen(1, Echo());
  const auto stream = joined.Connect(0, [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  // It takes thousands of transactions, so it is not on its way before the link ends.
  ASSERT_EQ(SendText(*stream, std::string(16U << 20, 'x'),
                     [&](Status status) {
                       EXPECT_EQ(status, Status::StreamClosed);
                       taker.Take({joined, 0, stream});
                     }),
            Status::Success);
  joined.links[0]->shutdown();
  taker.taken.Await();
}

TEST_P(WithinCallbacks, OfTheListener) {
  std::atomic<bool> isFirst = true;
  Joined joined;
  joined.Listen(0, Echo());
  joined.Listen(1, [&](const std::shared_ptr<LmIpclibStream>& stream) {
    if (!isFirst.exchange(false)) return Echo()(stream);
    taker.Take({joined, 1, stream});
    return Echo()(stream);
  });
  const auto stream = joined.NewStream([](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  // Some paths leave nobody who could answer.
  auto status = std::async(std::launch::async, [&] { return stream->connect({}, joined.links[0], nullptr); });
  taker.taken.Await();
  joined.links[0]->shutdown();
  static_cast<void>(status.get());
}

TEST_P(WithinCallbacks, OfALinkThatHasClosed) {
  std::shared_ptr<LmIpclibStream> stream;
  std::function<void(LmIpclibLink&)> closed;
  Joined joined(
      65536, [](LmIpclibLink&) {}, [&](LmIpclibLink& link) { closed(link); });
  closed = [&](LmIpclibLink& link) {
    if (&link == joined.links[0].get()) taker.Take({joined, 0, stream});
  };
  joined.Listen(0, Echo());
  joined.Listen(1, Echo());
  stream = joined.Connect(0, [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
  joined.links[0]->shutdown();
  taker.taken.Await();
}

INSTANTIATE_TEST_SUITE_P(EveryPath, WithinCallbacks, testing::ValuesIn(kPaths),
                         [](const testing::TestParamInfo<Path>& path) {
                           std::string name;
                           for (const char c : path.param.tells) {
                             if (std::isalnum(static_cast<unsigned char>(c)) != 0) name.push_back(c);
                           }
                           return name;
                         });

}  // namespace
}  // namespace conversations
