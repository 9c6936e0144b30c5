// What other tests show by a clock that they move, shown once by the system's own: minutes long.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "runtime/loggerManager.h"
#include "runtime/mutex.h"
#include "runtime/pollThread.h"
#include "tests/runtime/logLines.h"
#include "tests/support/meeting.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using runtime::RCPtr;
using runtimeTests::LogLines;
using testing::SizeIs;

TEST(RealTime, ALockHeldForThirtySecondsIsReportedOnceAndAcquiredWhenItComesFree) {
  const runtime::TxMutex mutex;
  const LogLines lines;
  ASSERT_TRUE(mutex.Acquire());
  const Clock::time_point began = Clock::now();
  bool acquired = false;
  std::thread waiter([&] { acquired = mutex.Acquire() && mutex.Release(); });
  lines.Await("W TxMutex::Acquire(): Possible deadlock");
  EXPECT_GE(Clock::now() - began, 30s);
  mutex.Release();
  waiter.join();
  EXPECT_TRUE(acquired);
  EXPECT_THAT(lines.Of("W "), SizeIs(1));
}

class Once : public runtime::TxPollItem {
 public:
  explicit Once(support::Signal& done) : TxPollItem("once"), done_(done) {}
  bool Run(bool timedOut) override {
    byTime = timedOut;
    done_.Give();
    return false;
  }
  bool byTime = false;

 private:
  support::Signal& done_;
};

TEST(RealTime, AnItemOfAMinuteRunsAfterAMinute) {
  const RCPtr<runtime::TxPollThread> thread(new runtime::TxPollThread("long"));
  support::Signal done;
  const RCPtr<Once> item(new Once(done));
  ASSERT_TRUE(thread->StartScheduler());
  const Clock::time_point began = Clock::now();
  ASSERT_TRUE(thread->AddItem(item, {}, 60'000));
  done.Await();
  // The scheduler counts in milliseconds, to the nearest.
  EXPECT_GE(Clock::now() - began, 60s - 1ms);
  EXPECT_TRUE(thread->Thread().Stop(runtime::TxEvent::kNoLimit));
  EXPECT_TRUE(item->byTime);
}

TEST(RealTime, ABlockOfMessagesThatIsIdleForTenMinutesIsGivenBack) {
  const LogLines lines;
  RCPtr<runtime::LogMessageManager> manager(new runtime::LogMessageManager);
  {
    std::vector<RCPtr<runtime::LogMessage>> messages;
    for (int i = 0; i < 101; ++i) messages.push_back(manager->NewMessage(3, nullptr, 0));
  }
  const Clock::time_point idle = Clock::now();
  ASSERT_EQ(manager->Cache().Blocks(), 2u);
  runtime::gLogLevel = 6;
  lines.Await("T LogMessageCache::OnBlockReleaseTimer(): Log message cache size is 100");
  EXPECT_GE(Clock::now() - idle, 10min - 1ms);
  EXPECT_EQ(manager->Cache().Blocks(), 1u);
  // The thread lets go of the timer at its next pass.
  runtime::gLogLevel = 7;
  manager.Reset();
  lines.Await("N TxPollThread::LogAllItems(): Logger - 0 items");
}

}  // namespace
