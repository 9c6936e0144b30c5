#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <vector>

#include "tests/platform/handleSupport.h"
#include "tests/platform/poolSupport.h"

namespace {

using namespace pool;
using handles::NewEvent;

struct SeenWait {
  PTP_WAIT wait = nullptr;
  TP_WAIT_RESULT result = WAIT_FAILED;
  Signal done;
};

TEST(PoolWait, RunsItsCallbackWhenItsObjectIsSignalled) {
  SeenWait seen;
  const UniqueWait wait(CreateThreadpoolWait(
      [](PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT itself, TP_WAIT_RESULT result) {
        auto& all = *static_cast<SeenWait*>(context);
        all.wait = itself;
        all.result = result;
        all.done.Set();
      },
      &seen, nullptr));
  ASSERT_TRUE(wait);
  const UniqueEvent event = NewEvent(true);
  SetThreadpoolWait(wait.get(), event.get(), nullptr);
  SetEvent(event.get());
  seen.done.Await();
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
  EXPECT_EQ(seen.wait, wait.get());
  EXPECT_EQ(seen.result, WAIT_OBJECT_0);
}

TEST(PoolWait, RunsAtOnceWhenItsObjectIsSignalledAlready) {
  Signal done;
  Function tell = [&](PTP_CALLBACK_INSTANCE) { done.Set(); };
  const UniqueWait wait = NewWait(tell);
  const UniqueEvent event = NewEvent(true, true);
  SetThreadpoolWait(wait.get(), event.get(), nullptr);
  done.Await();
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
}

TEST(PoolWait, ConsumesTheSignalOfAnAutoResetEvent) {
  Signal done;
  Function tell = [&](PTP_CALLBACK_INSTANCE) { done.Set(); };
  const UniqueWait wait = NewWait(tell);
  const UniqueEvent event = NewEvent(false, true);
  SetThreadpoolWait(wait.get(), event.get(), nullptr);
  done.Await();
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT);
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
}

TEST(PoolWait, RunsOnceUntilItIsSetAnew) {
  std::atomic<int> runs{0};
  const UniqueEvent ran = NewEvent(false);
  Function count = [&](PTP_CALLBACK_INSTANCE) {
    ++runs;
    SetEvent(ran.get());
  };
  const UniqueWait wait = NewWait(count);
  const UniqueEvent event = NewEvent(true, true);
  for (int i = 1; i <= 100; ++i) {
    SetThreadpoolWait(wait.get(), event.get(), nullptr);
    WaitForSingleObject(ran.get(), INFINITE);
    WaitForThreadpoolWaitCallbacks(wait.get(), false);
    ASSERT_EQ(runs, i);
  }
}

TEST(PoolWait, MayBeSetAnewByItsOwnCallback) {
  std::atomic<int> runs{0};
  PTP_WAIT itself = nullptr;
  const UniqueEvent event = NewEvent(false);
  const UniqueEvent ran = NewEvent(false);
  Function count = [&](PTP_CALLBACK_INSTANCE) {
    ++runs;
    SetThreadpoolWait(itself, event.get(), nullptr);
    SetEvent(ran.get());
  };
  const UniqueWait wait = NewWait(count);
  itself = wait.get();
  SetThreadpoolWait(wait.get(), event.get(), nullptr);
  for (int i = 0; i < 500; ++i) {
    SetEvent(event.get());
    WaitForSingleObject(ran.get(), INFINITE);
  }
  SetThreadpoolWait(wait.get(), {}, nullptr);
  WaitForThreadpoolWaitCallbacks(wait.get(), true);
  EXPECT_EQ(runs, 500);
}

TEST(PoolWait, ThatIsSetToNothingRunsNoMore) {
  Function fail = [](PTP_CALLBACK_INSTANCE) { ADD_FAILURE(); };
  const UniqueWait wait = NewWait(fail);
  const UniqueEvent event = NewEvent(true);
  SetThreadpoolWait(wait.get(), event.get(), nullptr);
  SetThreadpoolWait(wait.get(), {}, nullptr);
  SetEvent(event.get());
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
  SetThreadpoolWait(wait.get(), {}, nullptr);
}

TEST(PoolWait, ThatIsSetToAnotherObjectForgetsTheFirst) {
  std::atomic<int> runs{0};
  Signal done;
  Function count = [&](PTP_CALLBACK_INSTANCE) {
    ++runs;
    done.Set();
  };
  const UniqueWait wait = NewWait(count);
  const UniqueEvent first = NewEvent(true);
  const UniqueEvent second = NewEvent(true);
  SetThreadpoolWait(wait.get(), first.get(), nullptr);
  SetThreadpoolWait(wait.get(), second.get(), nullptr);
  SetEvent(first.get());
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
  EXPECT_EQ(runs, 0);
  SetEvent(second.get());
  done.Await();
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
  EXPECT_EQ(runs, 1);
}

TEST(PoolWait, GetsTheSignalOfAnAutoResetEventAlone) {
  for (int i = 0; i < 100; ++i) {
    std::atomic<int> runs{0};
    const UniqueEvent ran = NewEvent(false);
    Function count = [&](PTP_CALLBACK_INSTANCE) {
      ++runs;
      SetEvent(ran.get());
    };
    const UniqueWait one = NewWait(count);
    const UniqueWait other = NewWait(count);
    const UniqueEvent event = NewEvent(false);
    SetThreadpoolWait(one.get(), event.get(), nullptr);
    SetThreadpoolWait(other.get(), event.get(), nullptr);
    for (int signals = 1; signals <= 2; ++signals) {
      SetEvent(event.get());
      WaitForSingleObject(ran.get(), INFINITE);
      WaitForThreadpoolWaitCallbacks(one.get(), false);
      WaitForThreadpoolWaitCallbacks(other.get(), false);
      ASSERT_EQ(runs, signals);
    }
  }
}

TEST(PoolWait, SharesTheSignalOfAManualResetEvent) {
  Signal first;
  Signal second;
  Function tellFirst = [&](PTP_CALLBACK_INSTANCE) { first.Set(); };
  Function tellSecond = [&](PTP_CALLBACK_INSTANCE) { second.Set(); };
  const UniqueWait one = NewWait(tellFirst);
  const UniqueWait other = NewWait(tellSecond);
  const UniqueEvent event = NewEvent(true);
  SetThreadpoolWait(one.get(), event.get(), nullptr);
  SetThreadpoolWait(other.get(), event.get(), nullptr);
  SetEvent(event.get());
  first.Await();
  second.Await();
  WaitForThreadpoolWaitCallbacks(one.get(), false);
  WaitForThreadpoolWaitCallbacks(other.get(), false);
}

// More than one thread of the system can wait for at a time.
TEST(PoolWait, WorksForManyAtATime) {
  constexpr std::size_t kMany = 200;
  std::vector<UniqueEvent> events;
  std::deque<Signal> done(kMany);
  std::deque<Function> functions;
  std::vector<UniqueWait> waits;
  for (std::size_t i = 0; i < kMany; ++i) {
    events.push_back(NewEvent(false));
    functions.emplace_back([&done, i](PTP_CALLBACK_INSTANCE) { done[i].Set(); });
    waits.push_back(NewWait(functions.back()));
    SetThreadpoolWait(waits.back().get(), events.back().get(), nullptr);
  }
  for (std::size_t i = kMany; i-- > 0;) {
    SetEvent(events[i].get());
    done[i].Await();
  }
  for (const UniqueWait& wait : waits) WaitForThreadpoolWaitCallbacks(wait.get(), false);
}

// A thread that has just run a callback may be the one that waits for all others: it must not keep them waiting.
TEST(PoolWait, IsServedWhileTheCallbackOfAnotherBlocks) {
  for (int round = 0; round < 50; ++round) {
    Signal served;
    const UniqueEvent second = NewEvent(false);
    Function block = [&](PTP_CALLBACK_INSTANCE) {
      SetEvent(second.get());
      served.Await();
    };
    Function tell = [&](PTP_CALLBACK_INSTANCE) { served.Set(); };
    const UniqueWait blocking = NewWait(block);
    const UniqueWait telling = NewWait(tell);
    const UniqueEvent first = NewEvent(false);
    SetThreadpoolWait(telling.get(), second.get(), nullptr);
    SetThreadpoolWait(blocking.get(), first.get(), nullptr);
    SetEvent(first.get());
    served.Await();
    WaitForThreadpoolWaitCallbacks(telling.get(), false);
    WaitForThreadpoolWaitCallbacks(blocking.get(), false);
  }
}

TEST(PoolWait, RunsHoweverManyCallbacksBlockThatTheSameSignalHasBrought) {
  constexpr int kMany = 12;
  const UniqueEvent event = NewEvent(true);
  Signal allAreThere;
  std::atomic<int> missing{kMany};
  Function meet = [&](PTP_CALLBACK_INSTANCE) {
    if (--missing == 0) allAreThere.Set();
    allAreThere.Await();
  };
  std::vector<UniqueWait> waits;
  for (int i = 0; i < kMany; ++i) {
    waits.push_back(NewWait(meet));
    SetThreadpoolWait(waits.back().get(), event.get(), nullptr);
  }
  SetEvent(event.get());
  allAreThere.Await();
  for (const UniqueWait& wait : waits) WaitForThreadpoolWaitCallbacks(wait.get(), false);
}

TEST(PoolWait, ThatBlocksInAWaitForAnotherLetsThatOneRun) {
  for (int round = 0; round < 50; ++round) {
    Signal done;
    const UniqueEvent second = NewEvent(false);
    Function nothing = [](PTP_CALLBACK_INSTANCE) {};
    const UniqueWork work = NewWork(nothing);
    const UniqueWait other = NewWait(nothing);
    Function wait = [&](PTP_CALLBACK_INSTANCE) {
      SubmitThreadpoolWork(work.get());
      SetEvent(second.get());
      WaitForThreadpoolWorkCallbacks(work.get(), false);
      WaitForThreadpoolWaitCallbacks(other.get(), false);
      done.Set();
    };
    const UniqueWait waiting = NewWait(wait);
    const UniqueEvent first = NewEvent(false);
    SetThreadpoolWait(other.get(), second.get(), nullptr);
    SetThreadpoolWait(waiting.get(), first.get(), nullptr);
    SetEvent(first.get());
    done.Await();
    WaitForThreadpoolWaitCallbacks(waiting.get(), false);
    SetThreadpoolWait(other.get(), {}, nullptr);
    WaitForThreadpoolWaitCallbacks(other.get(), true);
  }
}

TEST(PoolWait, RunsWhenAThreadEnds) {
  Signal done;
  Signal leave;
  Function tell = [&](PTP_CALLBACK_INSTANCE) { done.Set(); };
  const UniqueWait wait = NewWait(tell);
  const UniqueThread thread(CreateThread(
      nullptr, 0,
      [](void* signal) -> DWORD {
        static_cast<Signal*>(signal)->Await();
        return 0;
      },
      &leave, 0, nullptr));
  SetThreadpoolWait(wait.get(), thread.get(), nullptr);
  EXPECT_FALSE(done.IsSet());
  leave.Set();
  done.Await();
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
}

void PulseUntilTaken(const UniqueEvent& event) {
  do SetEvent(event.get());
  while (WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0);
}

// The pool takes a signal a moment before it queues the callback, and one signal after the other: when it has taken the
// second, the first one's callback is queued. Of a wait that is set to nothing within that moment, Wine still runs it.
TEST(PoolWait, ThatIsQueuedIsDroppedByAWaitThatCancels) {
  OneThread one;
  const UniqueEvent first = NewEvent(false);
  const UniqueEvent second = NewEvent(false);
  Function fail = [](PTP_CALLBACK_INSTANCE) { ADD_FAILURE(); };
  const UniqueWait wait = NewWait(fail, one.Environment());
  Signal followed;
  Function tell = [&](PTP_CALLBACK_INSTANCE) { followed.Set(); };
  const UniqueWait follower = NewWait(tell, one.Environment());
  {
    const Gate gate(one);
    SetThreadpoolWait(wait.get(), first.get(), nullptr);
    SetThreadpoolWait(follower.get(), second.get(), nullptr);
    PulseUntilTaken(first);
    PulseUntilTaken(second);
    SetThreadpoolWait(wait.get(), {}, nullptr);
    WaitForThreadpoolWaitCallbacks(wait.get(), true);
  }
  followed.Await();
  WaitForThreadpoolWaitCallbacks(follower.get(), false);
}

TEST(PoolWait, MayBeClosedWhileItIsSet) {
  for (int i = 0; i < 200; ++i) {
    std::atomic<int> runs{0};
    Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
    const UniqueEvent event = NewEvent(true);
    UniqueWait wait = NewWait(count);
    SetThreadpoolWait(wait.get(), event.get(), nullptr);
    wait.reset();
    SetEvent(event.get());
    ASSERT_EQ(runs, 0);
  }
}

TEST(PoolWait, CanWaitForItselfAndCloseItselfOnceItsThreadHasDisassociatedItself) {
  for (int i = 0; i < 200; ++i) {
    Signal done;
    UniqueWait wait;
    Function run = [&](PTP_CALLBACK_INSTANCE instance) {
      DisassociateCurrentThreadFromCallback(instance);
      SetThreadpoolWait(wait.get(), {}, nullptr);
      WaitForThreadpoolWaitCallbacks(wait.get(), true);
      wait.reset();
      done.Set();
    };
    wait = NewWait(run);
    const UniqueEvent event = NewEvent(false, true);
    SetThreadpoolWait(wait.get(), event.get(), nullptr);
    done.Await();
  }
}

}  // namespace
