#include "runtime/logMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/movedClock.h"
#include "runtime/logCalls.h"
#include "runtime/logMessageCache.h"
#include "runtime/loggerManager.h"
#include "tests/ipc/failingMalloc.h"
#include "tests/runtime/logLines.h"
#include "tests/support/meeting.h"

namespace {

using namespace std::chrono_literals;
using runtime::LogMessage;
using runtime::LogMessageManager;
using runtime::RCPtr;
using runtimeTests::LogLines;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

using Messages = std::vector<RCPtr<LogMessage>>;

Messages Take(const RCPtr<LogMessageManager>& manager, int count) {
  Messages messages;
  for (int i = 0; i < count; ++i) messages.push_back(manager->NewMessage(3, nullptr, 0));
  return messages;
}

// A cache apart from the log's poll thread, which would keep its timer for a moment longer.
class Cache {
 public:
  Cache() { runtime::LoggerManager::Instance().HoldPollItems(); }
  ~Cache() { runtime::LoggerManager::Instance().AllowPollItems(); }
  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;

  [[nodiscard]] RCPtr<LogMessage> New() const { return manager->NewMessage(3, nullptr, 0); }

  const RCPtr<LogMessageManager> manager{new LogMessageManager};
};

TEST(LogMessage, HasTheTextItWasMadeOfWithANewlineAtItsEnd) {
  const Cache cache;
  EXPECT_EQ(cache.manager->NewMessage(2, "text", -1)->Text(), "text\n");
  EXPECT_EQ(cache.manager->NewMessage(2, "text\n", -1)->Text(), "text\n");
  EXPECT_EQ(cache.manager->NewMessage(2, "text", 2)->Text(), "te\n");
  EXPECT_EQ(cache.manager->NewMessage(2, nullptr, -1)->Text(), "");
  EXPECT_EQ(cache.manager->NewMessage(2, "", -1)->Text(), "\n");
  EXPECT_EQ(cache.manager->NewMessage(5, "text", -1)->Level(), 5);
}

class TextOfLength : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(LogMessage, TextOfLength,
                         testing::Values(0, 1, 254, 255, 256, 257, 1023, 1024, 10'239, 10'240, 1 << 20));

TEST_P(TextOfLength, IsAppendedWholeWithAndWithoutANewline) {
  const Cache cache;
  const std::string text(static_cast<std::size_t>(GetParam()), 'x');
  const RCPtr<LogMessage> plain = cache.New();
  plain->Append(text.c_str(), -1, false);
  EXPECT_EQ(plain->Text(), text);
  EXPECT_EQ(plain->Text().data()[text.size()], '\0');
  const RCPtr<LogMessage> line = cache.New();
  line->Append(text.c_str(), GetParam(), true);
  EXPECT_EQ(line->Text(), text + "\n");
  const RCPtr<LogMessage> formatted = cache.New();
  formatted->AppendFormat("<%s>", text);
  EXPECT_EQ(formatted->Text(), "<" + text + ">");
}

TEST(LogMessage, GrowsAsMuchAsItsTextNeedsAndThenSomeMore) {
  const Cache cache;
  const RCPtr<LogMessage> message = cache.New();
  const auto capacity = [&] {
    int bytes = 0;
    message->GetBuffer(&bytes, false);
    return bytes;
  };
  EXPECT_EQ(capacity(), 256);
  message->Append(std::string(300, 'x').c_str(), -1, false);
  EXPECT_EQ(capacity(), 301);
  message->Append("y", 1, true);
  EXPECT_EQ(capacity(), 303 + 256);
  EXPECT_EQ(message->Length(), 302);
}

TEST(LogMessage, IsCutWhereThereIsNoMemoryForMore) {
  const Cache cache;
  const std::string text(300, 'x');
  const RCPtr<LogMessage> plain = cache.New();
  const RCPtr<LogMessage> line = cache.New();
  const RCPtr<LogMessage> formatted = cache.New();
  {
    const ipcTests::NoRoomFor refused(301);
    plain->Append(text.c_str(), -1, false);
    formatted->AppendFormat("%s", text);
  }
  {
    const ipcTests::NoRoomFor refused(302);
    line->Append(text.c_str(), -1, true);
  }
  EXPECT_EQ(plain->Text(), text.substr(0, 255));
  EXPECT_EQ(line->Text(), text.substr(0, 254) + "\n");
  EXPECT_EQ(formatted->Text(), text.substr(0, 255));
}

TEST(LogMessage, KeepsWhatItHasWhereThereIsNoMemoryForMore) {
  const Cache cache;
  const std::string text(300, 'x');
  const RCPtr<LogMessage> message = cache.New();
  message->Append(text.c_str(), -1, false);
  const ipcTests::NoRoomFor refused(300 + 300 + 1 + 256);
  EXPECT_FALSE(message->Reserve(301, true));
  message->Append(text.c_str(), -1, false);
  EXPECT_EQ(message->Text(), text);
}

TEST(LogMessage, ReservesNothingForWhatFits) {
  const Cache cache;
  const RCPtr<LogMessage> message = cache.New();
  int capacity = 0;
  EXPECT_TRUE(message->Reserve(256, false));
  EXPECT_TRUE(message->Reserve(-5, false));
  message->GetBuffer(&capacity, false);
  EXPECT_EQ(capacity, 256);
  EXPECT_TRUE(message->Reserve(257, false));
  message->GetBuffer(&capacity, false);
  EXPECT_EQ(capacity, 257);
  EXPECT_FALSE(message->Reserve(0x7FFFFFFF, false));
}

TEST(LogMessage, TakesWhatWasWrittenIntoItsBuffer) {
  const Cache cache;
  const RCPtr<LogMessage> message = cache.New();
  message->Append("a", 1, false);
  int capacity = 0;
  char* const room = message->GetBuffer(&capacity, true);
  EXPECT_EQ(capacity, 255);
  room[0] = 'b';
  room[1] = 'c';
  EXPECT_TRUE(message->SetLength(2, true));
  EXPECT_EQ(message->Text(), "abc");
  EXPECT_TRUE(message->SetLength(1, false));
  EXPECT_EQ(message->Text(), "a");
}

TEST(LogMessage, RefusesALengthThatItHasNoRoomFor) {
  const Cache cache;
  const RCPtr<LogMessage> message = cache.New();
  message->Append("abc", 3, false);
  EXPECT_FALSE(message->SetLength(-4, true));
  EXPECT_FALSE(message->SetLength(256, false));
  EXPECT_FALSE(message->SetLength(0x7FFFFFFF, true));
  EXPECT_TRUE(message->SetLength(255, false));
  EXPECT_TRUE(message->SetLength(3, false));
  EXPECT_EQ(message->Text(), "abc");
}

TEST(LogMessage, KeepsItsTextWhenAFormatCannotBeFollowed) {
  const Cache cache;
  const RCPtr<LogMessage> message = cache.New();
  message->Append("before", -1, false);
  message->AppendFormat("%S", u"\u20AC");
  EXPECT_EQ(message->Text(), "before");
}

TEST(LogMessageCache, HandsAMessageOutAgainInlineAndEmpty) {
  const Cache cache;
  const LogMessage* first = nullptr;
  std::set<const LogMessage*> seen;
  {
    const RCPtr<LogMessage> message = cache.manager->NewMessage(5, std::string(300, 'x').c_str(), -1);
    first = message.Get();
  }
  for (int i = 0; i < 100; ++i) {
    const RCPtr<LogMessage> message = cache.New();
    int capacity = 0;
    message->GetBuffer(&capacity, false);
    EXPECT_EQ(capacity, 256);
    EXPECT_EQ(message->Text(), "");
    EXPECT_EQ(message->Count(), 1u);
    seen.insert(message.Get());
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_TRUE(seen.contains(first));
}

TEST(LogMessageCache, MakesABlockMoreForThe101stMessageAndReportsItsSize) {
  const LogLines lines;
  const Cache cache;
  runtime::gLogLevel = 6;
  Messages messages = Take(cache.manager, 100);
  EXPECT_THAT(std::string(messages[0]->Text()),
              EndsWith(" V LogMessageCache::NewMessage(): Log message cache size is 100\n"));
  for (int i = 1; i < 100; ++i) EXPECT_EQ(messages[static_cast<std::size_t>(i)]->Text(), "");
  EXPECT_EQ(cache.manager->Cache().Blocks(), 1u);
  messages.push_back(cache.New());
  EXPECT_THAT(std::string(messages[100]->Text()),
              EndsWith(" T LogMessageCache::NewMessage(): Log message cache size is 200\n"));
  EXPECT_EQ(cache.manager->Cache().Blocks(), 2u);
  EXPECT_THAT(lines.All(), IsEmpty());
}

TEST(LogMessageCache, PutsItsReportAheadOfTheMessageThatCausedIt) {
  const Cache cache;
  const LogLines lines;
  runtime::gLogLevel = 6;
  EXPECT_THAT(std::string(cache.manager->NewMessage(3, "text", -1)->Text()),
              EndsWith("V LogMessageCache::NewMessage(): Log message cache size is 100\ntext\n"));
}

TEST(LogMessageCache, KeepsTheReportToItselfWhenNobodyWantsIt) {
  const Cache cache;
  EXPECT_EQ(cache.manager->NewMessage(3, "text", -1)->Text(), "text\n");
}

TEST(LogMessageCache, TakesNoMorePendingTextThanItHasRoomFor) {
  const LogLines lines;
  runtime::gLogLevel = 6;
  const Cache cache;
  const std::string text(300, 'x');
  const platform::formatting::Argument argument = platform::formatting::MakeArgument(text);
  for (int i = 0; i < 10; ++i) cache.manager->Cache().LogInternal("Caller()", 6, "%s", {&argument, 1});
  const std::string pending(cache.New()->Text());
  EXPECT_EQ(pending.find("size is 100"), std::string::npos);
  EXPECT_EQ(pending.size(), 1023u);
  EXPECT_THAT(pending, EndsWith("x\n"));
  EXPECT_EQ(cache.New()->Text(), "");
}

class IdleCache : public testing::Test {
 protected:
  void RunTimer() const { cache_.manager->Cache().OnBlockReleaseTimer(); }
  [[nodiscard]] std::size_t Blocks() const { return cache_.manager->Cache().Blocks(); }

  platform::test::MovableClock clock_;
  const Cache cache_;
  const LogLines lines_;
};

TEST_F(IdleCache, GivesABlockBackThatWasIdleForTenMinutesOneInARun) {
  Take(cache_.manager, 300).clear();
  ASSERT_EQ(Blocks(), 3u);
  RunTimer();
  clock_.Move(9min);
  RunTimer();
  EXPECT_EQ(Blocks(), 3u);
  clock_.Move(1min);
  runtime::gLogLevel = 6;
  RunTimer();
  EXPECT_EQ(Blocks(), 2u);
  RunTimer();
  EXPECT_EQ(Blocks(), 1u);
  EXPECT_THAT(lines_.All(), ElementsAre("T LogMessageCache::OnBlockReleaseTimer(): Log message cache size is 200",
                                        "T LogMessageCache::OnBlockReleaseTimer(): Log message cache size is 100"));
}

TEST_F(IdleCache, KeepsItsLastBlockHoweverLongThatIsIdle) {
  Take(cache_.manager, 200).clear();
  clock_.Move(24h);
  for (int i = 0; i < 5; ++i) RunTimer();
  EXPECT_EQ(Blocks(), 1u);
}

TEST_F(IdleCache, KeepsABlockOfWhichAMessageIsOut) {
  Messages messages = Take(cache_.manager, 150);
  messages.erase(messages.begin() + 1, messages.begin() + 149);
  clock_.Move(24h);
  RunTimer();
  EXPECT_EQ(Blocks(), 2u);
  messages.clear();
  RunTimer();
  EXPECT_EQ(Blocks(), 2u);  // Idle only since a moment ago.
}

TEST(LogMessage, OutlivesItsCache) {
  RCPtr<LogMessage> one;
  RCPtr<LogMessage> other;
  {
    const Cache cache;
    one = cache.manager->NewMessage(3, "one", -1);
    other = cache.manager->NewMessage(3, "other", -1);
  }
  EXPECT_EQ(one->Text(), "one\n");
  one.Reset();
  EXPECT_EQ(other->Text(), "other\n");
}

TEST(LogMessage, OfACacheThatIsGoneMayComeBackOnSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  for (int i = 0; i < 100; ++i) {
    std::vector<Messages> shares(kThreads);
    {
      const Cache cache;
      for (Messages& share : shares) share = Take(cache.manager, 25);
    }
    support::StartLine line(kThreads);
    std::vector<std::thread> threads;
    for (Messages& share : shares) {
      threads.emplace_back([&] {
        line.ArriveAndWait();
        share.clear();
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

}  // namespace
