#include "runtime/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/format.h"
#include "platform/movedClock.h"
#include "runtime/functionTrace.h"
#include "tests/runtime/logLines.h"
#include "tests/runtime/recordingWriter.h"
#include "tests/support/meeting.h"

namespace {

using namespace std::chrono_literals;
using runtime::FunctionTrace;
using runtime::LogMessage;
using runtime::RCPtr;
using runtime::TimerOperation;
using runtimeTests::OwnLogger;
using runtimeTests::RecordingWriter;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// The log's own lines, as the process's default logger gets them.
class Routed {
 public:
  Routed() {
    runtime::RouteLogCalls();
    runtime::GetDefaultLogger()->AddWriter("test", writer);
  }
  ~Routed() {
    runtime::GetDefaultLogger()->RemoveWriter("test");
    runtime::SetLogReceiver(nullptr);
    runtime::gLogLevel = 0;
  }
  Routed(const Routed&) = delete;
  Routed& operator=(const Routed&) = delete;

  RCPtr<RecordingWriter> writer{new RecordingWriter};
};

TEST(LogLine, BeginsWithTheTimeTheThreadTheProcessTheLevelAndTheCaller) {
  char buffer[256];
  const int length = runtime::FormatLinePrefix(buffer, sizeof buffer, 3, "LmIpcClient::ConnectToStream()", true);
  const std::string line(buffer, static_cast<std::size_t>(length));
  const std::string rest =
      platform::FormatNarrow(" <%04X> [%04X] I LmIpcClient::ConnectToStream(): ", platform::GetCurrentThreadId(),
                             platform::GetCurrentProcessId())
          .value();
  EXPECT_THAT(line, EndsWith(rest));
  std::string shape = line.substr(0, line.size() - rest.size());
  for (char& unit : shape) unit = unit >= '0' && unit <= '9' ? '0' : unit;
  EXPECT_EQ(shape, "0000-00-00T00:00:00.000Z");
}

TEST(LogLine, TellsTheTimeOfTheMachinesClockWithABlank) {
  char buffer[64];
  const int length = runtime::FormatTimestamp(buffer, sizeof buffer, false);
  EXPECT_EQ(length, 23);
  EXPECT_EQ(buffer[10], ' ');
  EXPECT_EQ(buffer[23], '\0');
}

TEST(LogLine, IsCutToItsBuffer) {
  char buffer[8];
  EXPECT_EQ(runtime::FormatLinePrefix(buffer, sizeof buffer, 3, "Caller()", true), 7);
  EXPECT_EQ(buffer[7], '\0');
}

TEST(Logger, WithoutAWriterUsesNoMessage) {
  OwnLogger own;
  own.logger->Log("Caller()", 3, "text");
  EXPECT_EQ(own.manager->Cache().Blocks(), 0u);
}

TEST(Logger, FormatsAMessageOnceForAllWritersWithThePrefixOfTheFirst) {
  OwnLogger own;
  const auto second = own.Add("b", "second: ");
  const auto first = own.Add("a", "first: ");
  own.logger->Log("Caller()", 3, "%s=%d", "value", 7);
  EXPECT_THAT(first->Lines(), ElementsAre("first: value=7\n"));
  EXPECT_THAT(second->Lines(), ElementsAre("first: value=7\n"));
  EXPECT_EQ(first->messages, second->messages);
  EXPECT_EQ(first->prefixes, 1);
  EXPECT_EQ(second->prefixes, 0);
  EXPECT_THAT(first->levels, ElementsAre(3));
}

TEST(Logger, EndsALineThatHasNoNewlineAndNoOther) {
  OwnLogger own;
  const auto writer = own.Add("a");
  own.logger->Log("Caller()", 3, "without");
  own.logger->Log("Caller()", 3, "with\n");
  own.logger->Log("Caller()", 3, "");
  EXPECT_THAT(writer->Lines(), ElementsAre("without\n", "with\n", "\n"));
}

TEST(Logger, WritesALineOfTheUsualForm) {
  OwnLogger own;
  const auto writer = own.Add("a", "full");
  own.logger->Log("LmIpcClient::ConnectToStream()", 7, "Connected");
  ASSERT_THAT(writer->Lines(), SizeIs(1));
  EXPECT_THAT(writer->Lines()[0], EndsWith(" N LmIpcClient::ConnectToStream(): Connected\n"));
}

TEST(Logger, PassesOverAWriterThatIsNotEnabled) {
  OwnLogger own;
  const auto first = own.Add("a", "first: ");
  const auto second = own.Add("b", "second: ");
  first->SetEnabled(false);
  own.logger->Log("Caller()", 3, "text");
  EXPECT_THAT(first->Lines(), IsEmpty());
  EXPECT_THAT(second->Lines(), ElementsAre("second: text\n"));
}

TEST(Logger, PassesNothingBeyondItsLevelAndNothingAtAllWhileDisabled) {
  OwnLogger own;
  const auto writer = own.Add("a");
  own.logger->SetLevel(3);
  own.logger->Log("Caller()", 4, "detail");
  own.logger->Log("Caller()", 3, "progress");
  own.logger->SetEnabled(false);
  own.logger->Log("Caller()", 1, "failure");
  EXPECT_THAT(writer->Lines(), ElementsAre("progress\n"));
}

TEST(Logger, LosesWhatIsLoggedWithinEmit) {
  OwnLogger own;
  const auto writer = own.Add("a");
  const Routed routed;
  writer->onEmit = [&] {
    own.logger->Log("Caller()", 3, "within");
    runtime::Log("Caller()", 1, "within");
  };
  own.logger->Log("Caller()", 3, "text");
  EXPECT_THAT(writer->Lines(), ElementsAre("text\n"));
  EXPECT_THAT(routed.writer->Lines(), IsEmpty());
  EXPECT_EQ(runtime::gLogReentry, 0);
}

TEST(Logger, GoesOnBehindAWriterThatThrows) {
  OwnLogger own;
  const auto first = own.Add("a");
  const auto second = own.Add("b");
  first->onEmit = [] { throw std::runtime_error("no room"); };
  own.logger->Log("Caller()", 3, "one");
  own.logger->Log("Caller()", 3, "two");
  EXPECT_THAT(second->Lines(), ElementsAre("one\n", "two\n"));
  EXPECT_EQ(runtime::gLogReentry, 0);
}

TEST(Logger, LetsAWriterRemoveItselfAndOthersWhileItEmits) {
  OwnLogger own;
  const auto first = own.Add("a");
  const auto second = own.Add("b");
  const auto third = own.Add("c");
  first->onEmit = [&] {
    EXPECT_TRUE(own.logger->RemoveWriter("a"));
    EXPECT_FALSE(own.logger->RemoveWriter("a"));
    EXPECT_TRUE(own.logger->RemoveWriter("b"));
  };
  own.logger->Log("Caller()", 3, "one");
  own.logger->Log("Caller()", 3, "two");
  EXPECT_THAT(first->Lines(), ElementsAre("one\n"));
  EXPECT_THAT(second->Lines(), IsEmpty());
  EXPECT_THAT(third->Lines(), ElementsAre("one\n", "two\n"));
  EXPECT_TRUE(own.logger->AddWriter("a", first));
}

TEST(Logger, HasOneWriterOfAName) {
  OwnLogger own;
  const auto writer = own.Add("a");
  const RCPtr<RecordingWriter> other(new RecordingWriter);
  EXPECT_FALSE(own.logger->AddWriter("a", other));
  EXPECT_FALSE(own.logger->RemoveWriter("b"));
}

TEST(Logger, AddsTheTextOfTheErrorToACallThatAsksForIt) {
  const Routed routed;
  platform::SetLastError(platform::ERROR_ACCESS_DENIED);
  runtime::LogLastError("Caller()", 1, "Cannot open %s\n", "it");
  ASSERT_THAT(routed.writer->Lines(), SizeIs(1));
  EXPECT_THAT(routed.writer->Lines()[0], StartsWith("Cannot open it; (5) "));
  EXPECT_THAT(routed.writer->Lines()[0], EndsWith("\n"));
}

TEST(Logger, CutsACallWithAnErrorToItsBuffer) {
  const Routed routed;
  platform::SetLastError(platform::ERROR_ACCESS_DENIED);
  runtime::LogLastError("Caller()", 1, "%s", std::string(20'000, 'x'));
  ASSERT_THAT(routed.writer->Lines(), SizeIs(1));
  EXPECT_EQ(routed.writer->Lines()[0], std::string(10'239, 'x') + "\n");
}

TEST(DefaultLogger, GetsTheCallsThatAreRoutedToIt) {
  const Routed routed;
  runtime::Log("Caller()", 3, "text %d", 1);
  runtime::LogIfWanted("Caller()", 1, "not wanted");
  EXPECT_THAT(routed.writer->Lines(), ElementsAre("text 1\n"));
  EXPECT_EQ(runtime::GetDefaultLogger(), runtime::LoggerManager::Instance().DefaultLogger());
}

TEST(DefaultLogger, TakesCallsOfManyThreadsOneAtATime) {
  constexpr int kThreads = 4;
  constexpr int kEach = 250;
  const Routed routed;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      for (int k = 0; k < kEach; ++k) runtime::Log("Caller()", 3, "%d.%d", i, k);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(routed.writer->Lines(), SizeIs(kThreads * kEach));
}

TEST(LoggerManager, KeepsOneLoggerForAName) {
  runtime::LoggerManager& manager = runtime::LoggerManager::Instance();
  EXPECT_EQ(manager.NamedLogger("test"), manager.NamedLogger("test"));
  EXPECT_FALSE(manager.NamedLogger("test") == manager.DefaultLogger());
}

TEST(LoggerManager, PutsTheReleaseOfBlocksOnThePollThreadUnlessItIsHeldBack) {
  runtime::LoggerManager& manager = runtime::LoggerManager::Instance();
  EXPECT_TRUE(runtime::LoggerManager::AddsPollItems());
  manager.HoldPollItems();
  EXPECT_FALSE(runtime::LoggerManager::AddsPollItems());
  manager.AllowPollItems();
  EXPECT_TRUE(runtime::LoggerManager::AddsPollItems());
}

TEST(LoggerManager, GivesAnIdleBlockBackOnThePollThread) {
  platform::test::MovableClock clock;
  RCPtr<runtime::LogMessageManager> manager(new runtime::LogMessageManager);
  {
    std::vector<RCPtr<LogMessage>> messages;
    for (int i = 0; i < 101; ++i) messages.push_back(manager->NewMessage(3, nullptr, 0));
  }
  ASSERT_EQ(manager->Cache().Blocks(), 2u);
  const runtimeTests::LogLines lines;
  runtime::gLogLevel = 6;
  // What is moved while the thread is on its way into its wait is lost to that.
  while (manager->Cache().Blocks() != 1) {
    clock.Move(10min);
    std::this_thread::yield();
  }
  lines.Await("T LogMessageCache::OnBlockReleaseTimer(): Log message cache size is 100");
  // The thread lets go of the timer at its next pass.
  runtime::gLogLevel = 7;
  manager.Reset();
  lines.Await("N TxPollThread::LogAllItems(): Logger - 0 items");
}

TEST(LogWriter, DropsAndCountsWhatComesWhileItIsNotOpen) {
  OwnLogger own;
  const auto writer = own.Add("a");
  writer->open = false;
  own.logger->Log("Caller()", 3, "text");
  EXPECT_THAT(writer->texts, IsEmpty());
  EXPECT_EQ(writer->slots[0].dropped, 1u);
}

TEST(LogWriter, EmitsAtOnceInABatchOfItsOwn) {
  OwnLogger own;
  const auto writer = own.Add("a");
  own.logger->Log("Caller()", 3, "text");
  EXPECT_THAT(writer->texts, ElementsAre("(", "text\n", ")"));
}

TEST(LogWriter, EndsTheBatchInWhichItThrows) {
  OwnLogger own;
  const auto writer = own.Add("a");
  writer->onEmit = [] { throw std::runtime_error("full"); };
  own.logger->Log("Caller()", 3, "text");
  EXPECT_THAT(writer->texts, ElementsAre("(", "text\n", ")"));
}

class QueueingWriter : public testing::Test {
 protected:
  QueueingWriter() {
    writer_->asynchronous = true;
    writer_->threshold = 1'000;
    writer_->flushIntervalMs = 600'000;
    writer_->batchTimer.Mark(TimerOperation::StartPaused);
  }
  ~QueueingWriter() override {
    for (auto& slot : writer_->slots) slot.queue.clear();
  }
  void Log(int count, int from = 1) {
    for (int i = from; i < from + count; ++i) own_.logger->Log("Caller()", 3, "%d", i);
  }
  [[nodiscard]] std::size_t Queued() const { return writer_->slots[0].queue.size(); }
  void EnterBatchMode() {
    writer_->threshold = 1;
    Log(1, 0);
    EXPECT_TRUE(writer_->batchMode);
    writer_->texts.clear();
  }

  platform::test::MovableClock clock_;
  OwnLogger own_;
  const RCPtr<RecordingWriter> writer_ = own_.Add("a");
};

TEST_F(QueueingWriter, QueuesWhileTheTimedFlushIsInCharge) {
  Log(999);
  EXPECT_EQ(Queued(), 999u);
  EXPECT_THAT(writer_->texts, IsEmpty());
}

TEST_F(QueueingWriter, EntersBatchModeAtItsThresholdAndStopsTheTimedFlush) {
  struct Flush : runtime::LogFlushItem {
    using LogFlushItem::LogFlushItem;
    bool Run(bool) override { return true; }
  };
  writer_->pollItem = new Flush("flush");
  const runtimeTests::LogLines lines;
  runtime::gLogLevel = 4;
  writer_->threshold = 3;
  Log(3);
  EXPECT_TRUE(writer_->batchMode);
  EXPECT_THAT(writer_->texts, ElementsAre("\n***** BATCH MODE ENABLED *****\n\n"));
  EXPECT_THAT(writer_->levels, ElementsAre(0));
  EXPECT_THAT(lines.All(), ElementsAre("D TxPollItem::Disable(): ---: Item flush disabled"));
}

TEST_F(QueueingWriter, DoesNotEnterBatchModeWhileAFlushIsUnderWay) {
  struct Flush : runtime::LogFlushItem {
    using LogFlushItem::LogFlushItem;
    bool Run(bool) override { return true; }
  };
  const RCPtr<Flush> flush(new Flush("flush"));
  flush->flushing = true;
  writer_->pollItem = flush.Get();
  writer_->threshold = 1;
  Log(1);
  EXPECT_FALSE(writer_->batchMode);
  EXPECT_THAT(writer_->texts, IsEmpty());
}

TEST_F(QueueingWriter, EntersBatchModeAtOnceWhenItsTimerRuns) {
  writer_->batchTimer.Mark(TimerOperation::Start);
  Log(1);
  EXPECT_TRUE(writer_->batchMode);
}

TEST_F(QueueingWriter, WritesOutAllThatIsThereAtThe100thMessageInBatchMode) {
  EnterBatchMode();
  Log(98);
  EXPECT_EQ(Queued(), 99u);
  EXPECT_THAT(writer_->texts, IsEmpty());
  Log(1, 99);
  EXPECT_EQ(Queued(), 0u);
  ASSERT_THAT(writer_->texts, SizeIs(102));
  EXPECT_EQ(writer_->texts.front(), "(");
  EXPECT_EQ(writer_->texts[1], "0\n");
  EXPECT_EQ(writer_->texts[100], "99\n");
  EXPECT_EQ(writer_->texts.back(), ")");
}

TEST_F(QueueingWriter, WritesOut200AtAMultipleOf100) {
  writer_->threshold = 299;
  Log(299);
  writer_->texts.clear();
  Log(1, 300);
  EXPECT_EQ(Queued(), 100u);
  EXPECT_THAT(writer_->Lines(), SizeIs(200));
}

TEST_F(QueueingWriter, WritesOut100WhenItsTimeIsOver) {
  writer_->threshold = 150;
  Log(150);
  writer_->texts.clear();
  writer_->batchTimer.Mark(TimerOperation::Start);
  clock_.Move(9min);
  Log(1);
  EXPECT_THAT(writer_->texts, IsEmpty());
  clock_.Move(1min);
  Log(1);
  EXPECT_EQ(Queued(), 52u);
  EXPECT_THAT(writer_->Lines(), SizeIs(100));
  Log(1);
  EXPECT_THAT(writer_->Lines(), SizeIs(100));  // The time has begun anew.
}

TEST_F(QueueingWriter, WhileFloodedQueuesNothingAndTellsTheSumAtTheNextFlush) {
  Log(2);
  writer_->flooded = true;
  Log(1'000);
  EXPECT_EQ(Queued(), 2u);
  EXPECT_EQ(writer_->slots[0].dropped, 1'000u);
  writer_->flooded = false;
  writer_->Flush(writer_->slots[0], 100);
  EXPECT_THAT(writer_->texts, ElementsAre("(", "1\n", "2\n", "\n******* Dropped 1000 messages *******\n\n", ")"));
  EXPECT_EQ(writer_->levels.back(), 3);
  EXPECT_EQ(writer_->slots[0].dropped, 0u);
  Log(1);
  writer_->texts.clear();
  writer_->Flush(writer_->slots[0], 100);
  EXPECT_THAT(writer_->texts, ElementsAre("(", "1\n", ")"));
}

TEST_F(QueueingWriter, MayRemoveItselfWithinAFlushThatHasSomethingToTell) {
  Log(1);
  writer_->flooded = true;
  Log(1);
  writer_->onEmit = [&] { own_.logger->RemoveWriter("a"); };
  writer_->Flush(writer_->slots[0], 100);
  EXPECT_THAT(writer_->texts, ElementsAre("(", "1\n", "\n******* Dropped 1 messages *******\n\n", ")"));
}

TEST_F(QueueingWriter, MayRemoveItselfAheadOfItsBatchMode) {
  writer_->threshold = 1;
  writer_->onQuestion = [&] { own_.logger->RemoveWriter("a"); };
  Log(1);
  EXPECT_TRUE(writer_->batchMode);
  EXPECT_THAT(writer_->texts, IsEmpty());  // Nobody is left to report to.
}

TEST_F(QueueingWriter, EndsTheBatchInWhichItThrows) {
  Log(1);
  writer_->onEmit = [] { throw std::runtime_error("full"); };
  EXPECT_THROW(writer_->Flush(writer_->slots[0], 100), std::runtime_error);
  EXPECT_THAT(writer_->texts, ElementsAre("(", "1\n", ")"));
}

TEST_F(QueueingWriter, ThatWasRemovedWritesOutWhatItHasAndKeepsItsSum) {
  Log(1);
  writer_->flooded = true;
  Log(1);
  own_.logger->RemoveWriter("a");
  writer_->Flush(writer_->slots[0], 100);
  EXPECT_THAT(writer_->texts, ElementsAre("(", "1\n", ")"));
  EXPECT_EQ(writer_->slots[0].dropped, 1u);
}

TEST_F(QueueingWriter, DropsAndCountsWhatItDoesNotWant) {
  writer_->unwanted = "2";
  Log(3);
  EXPECT_EQ(Queued(), 2u);
  EXPECT_EQ(writer_->slots[0].dropped, 1u);
}

TEST_F(QueueingWriter, FlushesNothingFromAnEmptySlotOrWithoutACount) {
  writer_->slots[0].dropped = 5;
  writer_->Flush(writer_->slots[0], 100);
  writer_->slots[0].dropped = 0;
  Log(1);
  writer_->Flush(writer_->slots[0], 0);
  EXPECT_THAT(writer_->texts, IsEmpty());
}

TEST_F(QueueingWriter, DoesNotCountAnEmptyEntry) {
  writer_->slots[0].queue.push_back(nullptr);
  Log(2);
  writer_->Flush(writer_->slots[0], 1);
  EXPECT_THAT(writer_->Lines(), ElementsAre("1\n"));
}

TEST_F(QueueingWriter, TakesNewMessagesIntoItsActiveSlot) {
  writer_->activeSlot = 1;
  Log(1);
  EXPECT_EQ(Queued(), 0u);
  EXPECT_EQ(writer_->slots[1].queue.size(), 1u);
}

class Trace : public testing::Test {
 protected:
  OwnLogger own_;
  const RCPtr<RecordingWriter> writer_ = own_.Add("a");
};

TEST_F(Trace, LogsBothEndsOfAScope) {
  { const FunctionTrace trace(3, "Scope()", own_.logger, ""); }
  EXPECT_THAT(writer_->Lines(), ElementsAre("Enter\n", "Exit\n"));
  EXPECT_THAT(writer_->levels, ElementsAre(3, 3));
}

TEST_F(Trace, LogsItsTextAtBothEnds) {
  { const FunctionTrace trace(3, "Scope()", own_.logger, "%s %d", "text", 7); }
  EXPECT_THAT(writer_->Lines(), ElementsAre("Enter - text 7\n", "Exit - text 7\n"));
}

TEST_F(Trace, TellsHowLongTheScopeTook) {
  platform::test::MovableClock clock;
  {
    FunctionTrace trace(3, "Scope()", own_.logger, "");
    trace.SetTimed(true);
    clock.Move(1h);
  }
  {
    FunctionTrace trace(3, "Scope()", own_.logger, "text");
    trace.SetTimed(true);
    clock.Move(1h);
  }
  // An hour, and a moment more.
  EXPECT_THAT(writer_->Lines(), ElementsAre("Enter\n", AllOf(StartsWith("Exit(36"), EndsWith("ms)\n")),
                                            "Enter - text\n", AllOf(StartsWith("Exit(36"), EndsWith("ms) - text\n"))));
}

TEST_F(Trace, TellsHowTheScopeHasEnded) {
  {
    FunctionTrace trace(3, "Scope()", own_.logger, "text");
    trace.SetExitText(1, "failed with %d", 5);
  }
  EXPECT_THAT(writer_->Lines(), ElementsAre("Enter - text\n", "Exit - failed with 5\n"));
  EXPECT_THAT(writer_->levels, ElementsAre(3, 1));
}

TEST_F(Trace, OfAScopeTooQuietToTellOfItsBeginningTellsOfItsFailure) {
  own_.logger->SetLevel(2);
  {
    FunctionTrace trace(3, "Scope()", own_.logger, "text");
    trace.SetExitText(1, "failed");
  }
  { const FunctionTrace trace(3, "Scope()", own_.logger, "text"); }
  EXPECT_THAT(writer_->Lines(), ElementsAre("failed\n"));
}

TEST_F(Trace, KeepsAnExitTextToItselfThatNobodyWants) {
  own_.logger->SetLevel(3);
  {
    FunctionTrace trace(3, "Scope()", own_.logger, "text");
    trace.SetExitText(5, "detail");
  }
  EXPECT_THAT(writer_->Lines(), ElementsAre("Enter - text\n", "Exit - text\n"));
}

TEST_F(Trace, CutsItsTextTo1023Bytes) {
  { const FunctionTrace trace(3, "Scope()", own_.logger, "%s", std::string(2'000, 'x')); }
  EXPECT_THAT(writer_->Lines(),
              ElementsAre("Enter - " + std::string(1'023, 'x') + "\n", "Exit - " + std::string(1'023, 'x') + "\n"));
}

TEST(DefaultTrace, IsSilentUntilItsLevelIsWanted) {
  const Routed routed;
  { const FunctionTrace trace(3, "Scope()", {}, ""); }
  EXPECT_THAT(routed.writer->Lines(), IsEmpty());
  runtime::gLogLevel = 3;
  { const FunctionTrace trace(3, "Scope()", {}, ""); }
  EXPECT_THAT(routed.writer->Lines(), ElementsAre("Enter\n", "Exit\n"));
}

TEST(DefaultTrace, TellsOfAFailureThatIsWantedThoughItsBeginningWasNot) {
  const Routed routed;
  runtime::gLogLevel = 1;
  {
    FunctionTrace trace(3, "Scope()", {}, "text");
    trace.SetExitText(1, "failed");
  }
  EXPECT_THAT(routed.writer->Lines(), ElementsAre("Exit - failed\n"));
}

}  // namespace
