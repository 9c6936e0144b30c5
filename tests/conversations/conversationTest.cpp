#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <list>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/conversations/joined.h"

namespace conversations {
namespace {

constexpr int kRepetitions = LUMENAR_REPETITIONS;

// Hears a conversation to its end.
class Listener {
 public:
  [[nodiscard]] LmIpclibStream::RecvCallback Callback() {
    return [this](Status status, const std::shared_ptr<LmIpclibMsg>& message) {
      EXPECT_EQ(status, Status::Success);
      EXPECT_EQ(within_.fetch_add(1), 0) << "one message at a time";
      EXPECT_FALSE(ended_) << "nothing comes behind the end, not even another one";
      ended_ = message->size() == 0;
      if (!ended_) texts.push_back(TextOf(*message));
      within_.fetch_sub(1);
      // Whoever waits for the end may let go of this listener at once.
      (message->size() == 0 ? end : one).Give();
    };
  }

  support::Signal one;
  support::Signal end;
  std::vector<std::string> texts;

 private:
  std::atomic<int> within_ = 0;
  bool ended_ = false;
};

// All streams are there ahead of the first message, for a link ends with its last stream.
TEST(Conversation, CarriesMessagesOfAllSizesBothWaysInTheirOrder) {
  std::array<Listener, 4> listeners;
  Joined joined(4096);
  joined.Listen(1, Echo());
  constexpr int kMessages = 60;
  std::vector<std::shared_ptr<LmIpclibStream>> streams;
  for (Listener& listener : listeners) streams.push_back(joined.Connect(0, listener.Callback()));
  std::vector<std::thread> users;
  for (unsigned user = 0; user < listeners.size(); ++user) {
    users.emplace_back([&listener = listeners[user], &stream = *streams[user], user] {
      std::minstd_rand random(user + 1);
      std::vector<std::string> sent;
      for (int i = 0; i < kMessages; ++i) {
        const std::size_t size = 1 + random() % (i % 10 == 0 ? 20'000 : 200);
        sent.emplace_back(size, static_cast<char>('a' + i % 26));
        ASSERT_EQ(SendText(stream, sent.back()), Status::Success);
      }
      for (int i = 0; i < kMessages; ++i) listener.one.Await();
      EXPECT_EQ(listener.texts, sent);
      EXPECT_EQ(stream.close(kNoLimit), Status::Success);
      listener.end.Await();
    });
  }
  for (auto& user : users) user.join();
}

TEST(Conversation, EndsAtOnceWhenBothSidesClose) {
  for (int i = 0; i < kRepetitions / 10; ++i) {
    Joined joined;
    Listener here;
    Listener there;
    std::shared_ptr<LmIpclibStream> accepted;
    std::shared_ptr<LmIpclibStream> stream;
    // Once the callback of the end has returned, no answer reaches the peer any more.
    const auto answers = [](const std::shared_ptr<LmIpclibStream>& of, Listener& listener) {
      return [&of, hears = listener.Callback()](Status status, const std::shared_ptr<LmIpclibMsg>& message) {
        EXPECT_EQ(of->close(kNoLimit), Status::Success);
        hears(status, message);
      };
    };
    joined.Listen(1, [&](const std::shared_ptr<LmIpclibStream>& offered) {
      accepted = offered;
      return offered->accept({}, answers(accepted, there));
    });
    stream = joined.Connect(0, answers(stream, here));
    support::StartLine start(2);
    std::thread other([&] {
      start.ArriveAndWait();
      static_cast<void>(accepted->close(kNoLimit));
    });
    start.ArriveAndWait();
    static_cast<void>(stream->close(kNoLimit));
    other.join();
    here.end.Await();
    there.end.Await();
    // A link goes with its last stream, and takes the other one with it.
    joined.AwaitClosed();
    EXPECT_EQ(joined.links[0]->Streams(), 0u);
    EXPECT_EQ(joined.links[1]->Streams(), 0u);
  }
}

TEST(Conversation, IsOpenedAndClosedManyTimesOnOneLink) {
  Listener keeps;  // It hears its end when the links are let go of.
  std::list<Listener> listeners;
  Joined joined;
  joined.Listen(1, Echo());
  const auto keeper = joined.Connect(0, keeps.Callback());  // A link ends with its last stream.
  for (int i = 0; i < kRepetitions; ++i) {
    Listener& listener = listeners.emplace_back();
    const auto stream = joined.Connect(0, listener.Callback());
    ASSERT_EQ(SendText(*stream, "hello"), Status::Success);
    listener.one.Await();
    ASSERT_EQ(stream->close(kNoLimit), Status::Success);
    listener.end.Await();
    EXPECT_EQ(stream->state(), State::Closed);
  }
  EXPECT_EQ(joined.links[0]->state(), LinkState::Connected);
}

// How a link ends while streams talk: every send that was taken is completed once, and every stream hears its end.
void EndWhileStreamsTalk(const std::function<void(OpenLink&)>& ends) {
  for (int i = 0; i < (kRepetitions + 19) / 20; ++i) {
    Joined joined(4096);
    joined.Listen(1, Echo());
    std::atomic<int> taken = 0;
    support::Signal completed;
    constexpr int kThreads = 3;
    support::StartLine start(kThreads + 1);
    std::vector<std::thread> users;
    for (int user = 0; user < kThreads; ++user) {
      users.emplace_back([&] {
        Listener listener;
        const auto stream = joined.Connect(0, listener.Callback());
        start.ArriveAndWait();
        while (SendText(*stream, std::string(500, 'x'), [&](Status) { completed.Give(); }) == Status::Success) ++taken;
        listener.end.Await();
      });
    }
    start.ArriveAndWait();
    ends(*joined.links[static_cast<std::size_t>(i) % 2]);
    for (auto& user : users) user.join();
    joined.AwaitClosed();
    for (int each = 0; each < taken; ++each) completed.Await();
  }
}

TEST(Conversation, EndsWhenItsLinkIsShutDown) {
  EndWhileStreamsTalk([](OpenLink& link) { link.shutdown(); });
}

TEST(Conversation, EndsWhenItsLinkIsClosed) {
  EndWhileStreamsTalk([](OpenLink& link) { link.close(); });
}

TEST(Conversation, EndsWithItsLinkWhenACallbackThrowsALogicError) {
  for (int i = 0; i < kRepetitions / 10; ++i) {
    Listener other;
    Listener listener;
    const auto hears = listener.Callback();
    Joined joined;
    joined.Listen(1, Echo());
    const auto bystander = joined.Connect(0, other.Callback());
    const auto stream = joined.Connect(0, [&](Status status, const std::shared_ptr<LmIpclibMsg>& message) {
      hears(status, message);
      throw std::logic_error("a mistake");
    });
    ASSERT_EQ(SendText(*stream, "hello"), Status::Success);
    listener.one.Await();
    listener.end.Await();
    other.end.Await();
    joined.AwaitClosed();
    EXPECT_EQ(stream->state(), State::Closed);
  }
}

TEST(Conversation, MayCallEverythingFromWithinEveryCallback) {
  Listener keeps;  // It hears its end when the links are let go of.
  Joined joined(
      65536, [](LmIpclibLink&) {},
      [](LmIpclibLink& link) {
        // The link has closed.
        link.close();
        link.shutdown();
        link.notifyConnectWaiters();
        EXPECT_EQ(link.connectWait(), Status::InvalidState);
        EXPECT_EQ(link.connecting(), Status::InvalidState);
        EXPECT_NE(link.getLinkListener(), nullptr);
      });
  const auto callEverything = [&](LmIpclibStream& stream, std::size_t side) {
    OpenLink& link = *joined.links[side];
    // Opening waits for the other side, so a lock that is held here would hold the other side up.
    Listener listener;
    const auto another = joined.Connect(side, listener.Callback());
    EXPECT_EQ(SendText(*another, "within"), Status::Success);
    listener.one.Await();
    EXPECT_EQ(another->close(kNoLimit), Status::Success);
    listener.end.Await();
    stream.deferredDispatch();
    EXPECT_EQ(stream.completeConnect(), Status::InvalidState);
    EXPECT_EQ(stream.accept({}, {}), Status::InvalidState);
    EXPECT_EQ(stream.connect({}, joined.links[side], nullptr), Status::InvalidState);
    const auto added = joined.NewStream({});
    EXPECT_EQ(link.addStream(added), Status::Success);
    EXPECT_EQ(link.eraseStream(added), Status::Success);
    EXPECT_EQ(link.connectWait(), Status::Success);
    EXPECT_EQ(link.connecting(), Status::InvalidState);
    link.notifyConnectWaiters();
    EXPECT_NE(link.getLinkListener(), nullptr);
  };
  const auto accepts = [&](std::size_t side) {
    return [&, side](const std::shared_ptr<LmIpclibStream>& stream) {
      EXPECT_NE(joined.links[side]->getLinkListener(), nullptr);
      EXPECT_EQ(stream->completeConnect(), Status::InvalidState);
      EXPECT_EQ(stream->close(kNoLimit), Status::InvalidState);
      return Echo()(stream);
    };
  };
  joined.Listen(0, accepts(0));
  joined.Listen(1, accepts(1));

  const auto keeper = joined.Connect(0, keeps.Callback());  // A link ends with its last stream.
  Listener last;
  support::Signal completed;
  std::shared_ptr<LmIpclibStream> stream;
  const auto hears = last.Callback();
  stream = joined.Connect(0, [&](Status status, const std::shared_ptr<LmIpclibMsg>& message) {
    callEverything(*stream, 0);
    const bool isOpen = stream->state() == State::Connected;
    EXPECT_EQ(SendText(*stream, "from within"), isOpen ? Status::Success : Status::InvalidState);
    if (isOpen && last.texts.size() == 1) {
      EXPECT_EQ(stream->close(kNoLimit), Status::Success);
    }
    hears(status, message);
  });
  ASSERT_EQ(SendText(*stream, "begin",
                     [&](Status status) {
                       EXPECT_EQ(status, Status::Success);
                       callEverything(*stream, 0);
                       EXPECT_GE(stream->outstandingSends(), 1u);
                       completed.Give();
                     }),
            Status::Success);
  completed.Await();
  last.end.Await();
}

TEST(Conversation, SharesItsLinkWithThousandsOfOthers) {
  constexpr int kStreams = 10 * kRepetitions;
  std::atomic<int> echoes = 0;
  std::atomic<int> ends = 0;
  support::Signal allEchoed;
  support::Signal allEnded;
  Joined joined;
  joined.Listen(1, Echo());
  std::vector<std::shared_ptr<LmIpclibStream>> all;
  for (int i = 0; i < kStreams; ++i) {
    all.push_back(joined.Connect(0, [&](Status, const std::shared_ptr<LmIpclibMsg>& message) {
      if (message->size() != 0) {
        if (++echoes == kStreams) allEchoed.Give();
      } else if (++ends == kStreams) {
        allEnded.Give();
      }
    }));
  }
  EXPECT_EQ(joined.links[0]->Streams(), static_cast<std::size_t>(kStreams));
  for (const auto& stream : all) ASSERT_EQ(SendText(*stream, "hello"), Status::Success);
  allEchoed.Await();
  joined.links[0]->close();
  allEnded.Await();
  joined.AwaitClosed();
}

}  // namespace
}  // namespace conversations
