#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "tests/platform/poolSupport.h"

namespace {

using namespace pool;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Units = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

FILETIME TimeOf(std::int64_t units) {
  const auto bits = static_cast<std::uint64_t>(units);
  return {.dwLowDateTime = static_cast<DWORD>(bits), .dwHighDateTime = static_cast<DWORD>(bits >> 32)};
}

FILETIME In(Units delay) { return TimeOf(-delay.count()); }

FILETIME At(std::chrono::system_clock::time_point time) {
  constexpr std::int64_t kFrom1601To1970 = 116'444'736'000'000'000;
  return TimeOf(kFrom1601To1970 + std::chrono::duration_cast<Units>(time.time_since_epoch()).count());
}

// A timer whose callback counts and tells.
struct Counted {
  Counted() : timer(NewTimer(count)) {}
  void Set(FILETIME due, DWORD period = 0) { SetThreadpoolTimer(timer.get(), &due, period, 0); }
  void Unset() { SetThreadpoolTimer(timer.get(), nullptr, 0, 0); }
  void AwaitRun() { WaitForSingleObject(ran.get(), INFINITE); }
  void Finish() { WaitForThreadpoolTimerCallbacks(timer.get(), false); }

  std::atomic<int> runs{0};
  UniqueEvent ran{CreateEventW(nullptr, false, false, nullptr)};
  Function count = [this](PTP_CALLBACK_INSTANCE) {
    ++runs;
    SetEvent(ran.get());
  };
  UniqueTimer timer;
};

struct SeenTimer {
  PTP_TIMER timer = nullptr;
  Signal done;
};

TEST(PoolTimer, WithADueTimeOfZeroRunsAtOnce) {
  SeenTimer seen;
  const UniqueTimer timer(CreateThreadpoolTimer(
      [](PTP_CALLBACK_INSTANCE, void* context, PTP_TIMER itself) {
        static_cast<SeenTimer*>(context)->timer = itself;
        static_cast<SeenTimer*>(context)->done.Set();
      },
      &seen, nullptr));
  ASSERT_TRUE(timer);
  const FILETIME now{};
  SetThreadpoolTimer(timer.get(), &now, 0, 0);
  seen.done.Await();
  WaitForThreadpoolTimerCallbacks(timer.get(), false);
  EXPECT_EQ(seen.timer, timer.get());
}

TEST(PoolTimer, RunsOnceWithoutAPeriod) {
  Counted counted;
  Counted later;
  for (int i = 1; i <= 50; ++i) {
    counted.Set(In(Units(1)));
    counted.AwaitRun();
    later.Set(In(1ms));
    later.AwaitRun();
    counted.Finish();
    later.Finish();
    ASSERT_EQ(counted.runs, i);
  }
}

TEST(PoolTimer, RunsNoEarlierThanItIsDue) {
  Counted counted;
  const Clock::time_point began = Clock::now();
  counted.Set(In(50ms));
  counted.AwaitRun();
  // The system's clocks tick differently, by as much as 16 ms.
  EXPECT_GE(Clock::now() - began, 30ms);
  counted.Finish();
}

TEST(PoolTimer, TakesAPointInTime) {
  Counted counted;
  const auto began = std::chrono::system_clock::now();
  counted.Set(At(began + 50ms));
  counted.AwaitRun();
  EXPECT_GE(std::chrono::system_clock::now() - began, 30ms);
  counted.Finish();
}

TEST(PoolTimer, ThatWasDueInThePastRunsAtOnce) {
  Counted counted;
  counted.Set(At(std::chrono::system_clock::now() - 1h));
  counted.AwaitRun();
  counted.Set(TimeOf(1));
  counted.AwaitRun();
  counted.Finish();
  EXPECT_EQ(counted.runs, 2);
}

TEST(PoolTimer, RunsAgainAtEachPeriod) {
  Counted counted;
  counted.Set(In(Units(1)), 1);
  for (int i = 0; i < 5; ++i) counted.AwaitRun();
  counted.Unset();
  counted.Finish();
  const int runs = counted.runs;
  EXPECT_GE(runs, 5);
  Counted later;
  later.Set(In(20ms));
  later.AwaitRun();
  EXPECT_EQ(counted.runs, runs);
  later.Finish();
}

TEST(PoolTimer, WithAPeriodMayStartAtAPointInTime) {
  Counted counted;
  counted.Set(At(std::chrono::system_clock::now() - 1h), 1);
  for (int i = 0; i < 3; ++i) counted.AwaitRun();
  counted.Unset();
  counted.Finish();
  EXPECT_GE(counted.runs, 3);
}

TEST(PoolTimer, ThatIsSetToNothingRunsNoMore) {
  Counted counted;
  counted.Set(In(1h));
  counted.Unset();
  counted.Finish();
  counted.Unset();
  EXPECT_EQ(counted.runs, 0);
}

TEST(PoolTimer, ThatIsSetAnewForgetsWhatWasSet) {
  Counted counted;
  counted.Set(In(1h), 1);
  counted.Set(In(Units(1)));
  counted.AwaitRun();
  counted.Finish();
  EXPECT_EQ(counted.runs, 1);
}

TEST(PoolTimer, IsNotHeldUpByOneThatIsDueLater) {
  Counted late;
  Counted soon;
  late.Set(In(1h));
  soon.Set(In(1ms));
  soon.AwaitRun();
  late.Unset();
  soon.Set(At(std::chrono::system_clock::now() + 1ms));
  soon.AwaitRun();
  soon.Finish();
  EXPECT_EQ(late.runs, 0);
}

TEST(PoolTimer, TakesTheLongestDelay) {
  Counted counted;
  counted.Set(TimeOf(std::numeric_limits<std::int64_t>::min()));
  counted.Set(TimeOf(std::numeric_limits<std::int64_t>::min() + 1));
  counted.Set(TimeOf(std::numeric_limits<std::int64_t>::max()));
  counted.Unset();
  counted.Finish();
  EXPECT_EQ(counted.runs, 0);
}

TEST(PoolTimer, ThatIsQueuedIsDroppedByAWaitThatCancels) {
  OneThread one;
  Function fail = [](PTP_CALLBACK_INSTANCE) { ADD_FAILURE(); };
  const UniqueTimer timer = NewTimer(fail, one.Environment());
  const FILETIME now{};
  const Gate gate(one);
  SetThreadpoolTimer(timer.get(), &now, 0, 0);
  Counted later;
  later.Set(In(5ms));
  later.AwaitRun();
  later.Finish();
  SetThreadpoolTimer(timer.get(), nullptr, 0, 0);
  WaitForThreadpoolTimerCallbacks(timer.get(), true);
}

TEST(PoolTimer, MayBeClosedWhileItIsSet) {
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  const FILETIME soon = In(1h);
  for (int i = 0; i < 200; ++i) {
    const UniqueTimer timer = NewTimer(count);
    SetThreadpoolTimer(timer.get(), &soon, 0, 0);
  }
  EXPECT_EQ(runs, 0);
}

TEST(PoolTimer, CanWaitForItselfAndCloseItselfOnceItsThreadHasDisassociatedItself) {
  const FILETIME now{};
  for (int i = 0; i < 200; ++i) {
    Signal done;
    UniqueTimer timer;
    Function run = [&](PTP_CALLBACK_INSTANCE instance) {
      DisassociateCurrentThreadFromCallback(instance);
      SetThreadpoolTimer(timer.get(), nullptr, 0, 0);
      WaitForThreadpoolTimerCallbacks(timer.get(), true);
      timer.reset();
      done.Set();
    };
    timer = NewTimer(run);
    SetThreadpoolTimer(timer.get(), &now, 0, 0);
    done.Await();
  }
}

}  // namespace
