#include "runtime/timer.h"

#include <gtest/gtest.h>

using runtime::kOnlyLook;
using runtime::TimerOperation;
using runtime::TxElapsedTimer;
using runtime::TxTimer;

namespace {

// Stands where the test puts it; a tick is a tenth of a millisecond.
struct TestTimer : TxTimer {
  [[nodiscard]] std::int64_t Now() const override { return now; }
  [[nodiscard]] std::int64_t Frequency() const override { return 10'000; }
  std::int64_t now = 1'000;
};

}  // namespace

TEST(TxTimer, CountsFromItsStart) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  timer.now += 50;
  EXPECT_EQ(timer.Mark(), 50);
  EXPECT_EQ(timer.Mark(kOnlyLook, 1'070), 70);
}

TEST(TxTimer, TellsTheTimeFromBeforeTheOperation) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  timer.now += 50;
  EXPECT_EQ(timer.Mark(TimerOperation::Restart), 50);
  EXPECT_EQ(timer.Mark(), 0);
}

TEST(TxTimer, APausedTimerStandsStillAndResumesWhereItStood) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  timer.now += 50;
  EXPECT_EQ(timer.Mark(TimerOperation::Pause), 50);
  timer.now += 1'000;
  EXPECT_EQ(timer.Mark(TimerOperation::Pause), 50);
  EXPECT_EQ(timer.Mark(TimerOperation::Resume), 50);
  timer.now += 7;
  EXPECT_EQ(timer.Mark(), 57);
}

TEST(TxTimer, ResumeOnARunningTimerChangesNothing) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  timer.now += 50;
  timer.Mark(TimerOperation::Resume);
  timer.now += 5;
  EXPECT_EQ(timer.Mark(), 55);
}

TEST(TxTimer, APausedTimerThatIsRestartedStaysPausedAtNothing) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  timer.now += 50;
  timer.Mark(TimerOperation::Pause);
  timer.now += 50;
  timer.Mark(TimerOperation::Restart);
  timer.now += 50;
  EXPECT_EQ(timer.Mark(), 0);
  timer.Mark(TimerOperation::Resume);
  timer.now += 5;
  EXPECT_EQ(timer.Mark(), 5);
}

TEST(TxTimer, StartPausedCountsOnceResumed) {
  TestTimer timer;
  timer.Mark(TimerOperation::StartPaused);
  timer.now += 50;
  EXPECT_EQ(timer.Mark(), 0);
  timer.Mark(TimerOperation::Resume);
  timer.now += 5;
  EXPECT_EQ(timer.Mark(), 5);
}

TEST(TxTimer, StartEndsAPause) {
  TestTimer timer;
  timer.Mark(TimerOperation::StartPaused);
  timer.now += 50;
  timer.Mark(TimerOperation::Start);
  timer.now += 5;
  EXPECT_EQ(timer.Mark(), 5);
}

TEST(TxTimer, AnyOtherOperationChangesNothing) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  timer.now += 50;
  for (const int number : {0, -1, 6}) EXPECT_EQ(timer.Mark(static_cast<TimerOperation>(number)), 50);
}

TEST(TxTimer, TellsSecondsAndTheNearestMillisecond) {
  TestTimer timer;
  timer.Mark(TimerOperation::Start);
  EXPECT_DOUBLE_EQ(timer.ElapsedSeconds(kOnlyLook, 1'000 + 25'000), 2.5);
  EXPECT_EQ(timer.ElapsedMS(kOnlyLook, 1'000 + 14), 1);
  EXPECT_EQ(timer.ElapsedMS(kOnlyLook, 1'000 + 15), 2);
}

TEST(TxElapsedTimer, RunsOnAndHasOneFrequency) {
  TxElapsedTimer timer;
  const std::int64_t before = timer.Now();
  EXPECT_GT(before, 0);
  EXPECT_GE(timer.Now(), before);
  EXPECT_GT(timer.Frequency(), 0);
  EXPECT_EQ(timer.Frequency(), TxElapsedTimer().Frequency());
}
