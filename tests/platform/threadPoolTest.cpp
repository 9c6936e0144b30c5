#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/poolSupport.h"

namespace {

using namespace pool;

constexpr int kRepetitions = 200;

TEST(CallbackEnvironment, IsInitialisedToVersionAndPriorityAndSize) {
  TP_CALLBACK_ENVIRON environment;
  InitializeThreadpoolEnvironment(&environment);
  EXPECT_EQ(environment.Version, 3U);
  EXPECT_EQ(environment.Pool, nullptr);
  EXPECT_EQ(environment.CleanupGroup, nullptr);
  EXPECT_EQ(environment.Flags, 0U);
  EXPECT_EQ(environment.CallbackPriority, TP_CALLBACK_PRIORITY_NORMAL);
  EXPECT_EQ(environment.Size, 72U);
  DestroyThreadpoolEnvironment(&environment);
}

TEST(CallbackEnvironment, NamesThePoolAndTheGroup) {
  const UniquePool pool(CreateThreadpool(nullptr));
  const UniqueCleanupGroup group(CreateThreadpoolCleanupGroup());
  TP_CALLBACK_ENVIRON environment;
  InitializeThreadpoolEnvironment(&environment);
  SetThreadpoolCallbackPool(&environment, pool.get());
  SetThreadpoolCallbackCleanupGroup(&environment, group.get(), nullptr);
  EXPECT_EQ(environment.Pool, pool.get());
  EXPECT_EQ(environment.CleanupGroup, group.get());
  DestroyThreadpoolEnvironment(&environment);
}

struct SeenWork {
  PTP_CALLBACK_INSTANCE instance = nullptr;
  PTP_WORK work = nullptr;
  std::thread::id thread;
};

TEST(Work, RunsItsCallbackOnAThreadOfThePool) {
  SeenWork seen;
  const UniqueWork work(CreateThreadpoolWork(
      [](PTP_CALLBACK_INSTANCE instance, void* context, PTP_WORK itself) {
        *static_cast<SeenWork*>(context) = {.instance = instance, .work = itself, .thread = std::this_thread::get_id()};
      },
      &seen, nullptr));
  ASSERT_TRUE(work);
  SubmitThreadpoolWork(work.get());
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_NE(seen.instance, nullptr);
  EXPECT_EQ(seen.work, work.get());
  EXPECT_NE(seen.thread, std::thread::id());
  EXPECT_NE(seen.thread, std::this_thread::get_id());
}

TEST(Work, RunsOnceForEachSubmission) {
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  const UniqueWork work = NewWork(count);
  for (int i = 0; i < 1000; ++i) SubmitThreadpoolWork(work.get());
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(runs, 1000);
}

TEST(Work, SubmittedByManyThreadsRunsOnceForEachSubmission) {
  constexpr int kThreads = 4;
  constexpr int kEach = 5000;
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  const UniqueWork work = NewWork(count);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < kEach; ++k) SubmitThreadpoolWork(work.get());
    });
  }
  for (std::thread& thread : threads) thread.join();
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(runs, kThreads * kEach);
}

TEST(Work, DroppedAmidABurstRunsNoMore) {
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> runs{0};
    Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
    const UniqueWork work = NewWork(count);
    for (int k = 0; k < 100; ++k) SubmitThreadpoolWork(work.get());
    WaitForThreadpoolWorkCallbacks(work.get(), true);
    const int whenDropped = runs;
    EXPECT_LE(whenDropped, 100);
    SubmitThreadpoolWork(work.get());
    WaitForThreadpoolWorkCallbacks(work.get(), false);
    EXPECT_EQ(runs, whenDropped + 1);
  }
}

TEST(Work, WithManyCallbacksLetsOthersTakeTheirTurn) {
  OneThread one;
  std::string order;
  Function many = [&](PTP_CALLBACK_INSTANCE) { order += 'm'; };
  Function few = [&](PTP_CALLBACK_INSTANCE) { order += 'f'; };
  const UniqueWork first = NewWork(many, one.Environment());
  const UniqueWork second = NewWork(few, one.Environment());
  {
    const Gate gate(one);
    for (int i = 0; i < 5; ++i) SubmitThreadpoolWork(first.get());
    for (int i = 0; i < 2; ++i) SubmitThreadpoolWork(second.get());
  }
  WaitForThreadpoolWorkCallbacks(first.get(), false);
  WaitForThreadpoolWorkCallbacks(second.get(), false);
  EXPECT_EQ(order, "mfmfmmm");
}

TEST(Work, ThatWasNeverSubmittedIsNotWaitedFor) {
  Function fail = [](PTP_CALLBACK_INSTANCE) { ADD_FAILURE(); };
  const UniqueWork work = NewWork(fail);
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  WaitForThreadpoolWorkCallbacks(work.get(), true);
}

TEST(Work, RunsInSeveralThreadsAtATime) {
  std::atomic<int> arrived{0};
  Signal both;
  Function meet = [&](PTP_CALLBACK_INSTANCE) {
    if (++arrived == 2) both.Set();
    both.Await();
  };
  const UniqueWork work = NewWork(meet);
  SubmitThreadpoolWork(work.get());
  SubmitThreadpoolWork(work.get());
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(arrived, 2);
}

TEST(Work, RunsHoweverManyCallbacksBlock) {
  constexpr int kBlocked = 20;
  Signal open;
  Function block = [&](PTP_CALLBACK_INSTANCE) { open.Await(); };
  Function unblock = [&](PTP_CALLBACK_INSTANCE) { open.Set(); };
  const UniqueWork blocked = NewWork(block);
  const UniqueWork unblocking = NewWork(unblock);
  for (int i = 0; i < kBlocked; ++i) SubmitThreadpoolWork(blocked.get());
  SubmitThreadpoolWork(unblocking.get());
  WaitForThreadpoolWorkCallbacks(blocked.get(), false);
  WaitForThreadpoolWorkCallbacks(unblocking.get(), false);
  EXPECT_TRUE(open.IsSet());
}

TEST(Work, SubmittedByACallbackRunsWhileThatBlocks) {
  for (int i = 0; i < kRepetitions; ++i) {
    Signal done;
    Function tell = [&](PTP_CALLBACK_INSTANCE) { done.Set(); };
    const UniqueWork told = NewWork(tell);
    Function hear = [&](PTP_CALLBACK_INSTANCE) {
      SubmitThreadpoolWork(told.get());
      done.Await();
    };
    const UniqueWork hearing = NewWork(hear);
    SubmitThreadpoolWork(hearing.get());
    WaitForThreadpoolWorkCallbacks(hearing.get(), false);
    WaitForThreadpoolWorkCallbacks(told.get(), false);
    ASSERT_TRUE(done.IsSet());
  }
}

TEST(Work, SubmittedByACallbackRunsWhileThatWaitsForItsCallbacks) {
  for (int i = 0; i < kRepetitions; ++i) {
    bool ran = false;
    Function run = [&](PTP_CALLBACK_INSTANCE) { ran = true; };
    const UniqueWork inner = NewWork(run);
    Function wait = [&](PTP_CALLBACK_INSTANCE) {
      SubmitThreadpoolWork(inner.get());
      WaitForThreadpoolWorkCallbacks(inner.get(), false);
      EXPECT_TRUE(ran);
    };
    const UniqueWork outer = NewWork(wait);
    SubmitThreadpoolWork(outer.get());
    WaitForThreadpoolWorkCallbacks(outer.get(), false);
  }
}

TEST(Work, ThatSubmitsItselfRunsAgain) {
  std::atomic<int> left{1000};
  PTP_WORK itself = nullptr;
  Signal done;
  Function chain = [&](PTP_CALLBACK_INSTANCE) { --left > 0 ? SubmitThreadpoolWork(itself) : done.Set(); };
  const UniqueWork work = NewWork(chain);
  itself = work.get();
  SubmitThreadpoolWork(work.get());
  done.Await();
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(left, 0);
}

TEST(Work, RunsOnOneThreadInTheOrderOfSubmission) {
  OneThread one;
  std::vector<int> order;
  std::vector<Function> functions;
  for (int i = 0; i < 20; ++i) functions.emplace_back([&order, i](PTP_CALLBACK_INSTANCE) { order.push_back(i); });
  std::vector<UniqueWork> works;
  for (Function& function : functions) works.push_back(NewWork(function, one.Environment()));
  {
    const Gate gate(one);
    for (const UniqueWork& work : works) SubmitThreadpoolWork(work.get());
  }
  for (const UniqueWork& work : works) WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(order.size(), 20U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(Work, IsWaitedForUntilItsCallbackEnds) {
  for (int i = 0; i < kRepetitions; ++i) {
    Signal entered;
    Signal leave;
    bool ended = false;
    Function run = [&](PTP_CALLBACK_INSTANCE) {
      entered.Set();
      leave.Await();
      ended = true;
    };
    const UniqueWork work = NewWork(run);
    SubmitThreadpoolWork(work.get());
    entered.Await();
    std::thread opener([&] { leave.Set(); });
    WaitForThreadpoolWorkCallbacks(work.get(), i % 2 == 0);
    EXPECT_TRUE(ended);
    opener.join();
  }
}

TEST(Work, ThatIsQueuedRunsBeforeAWaitWithoutCancellingReturns) {
  OneThread one;
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  const UniqueWork work = NewWork(count, one.Environment());
  Gate gate(one);
  for (int i = 0; i < 3; ++i) SubmitThreadpoolWork(work.get());
  EXPECT_EQ(runs, 0);
  gate.Open();
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(runs, 3);
}

TEST(Work, ThatIsQueuedIsDroppedByAWaitThatCancels) {
  OneThread one;
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  const UniqueWork work = NewWork(count, one.Environment());
  {
    const Gate gate(one);
    for (int i = 0; i < 3; ++i) SubmitThreadpoolWork(work.get());
    WaitForThreadpoolWorkCallbacks(work.get(), true);
  }
  EXPECT_EQ(runs, 0);
  SubmitThreadpoolWork(work.get());
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  EXPECT_EQ(runs, 1);
}

TEST(Work, ThatIsQueuedRunsAfterItIsClosed) {
  OneThread one;
  std::atomic<int> runs{0};
  Signal second;
  Function count = [&](PTP_CALLBACK_INSTANCE) {
    if (++runs == 2) second.Set();
  };
  UniqueWork work = NewWork(count, one.Environment());
  Gate gate(one);
  SubmitThreadpoolWork(work.get());
  SubmitThreadpoolWork(work.get());
  work.reset();
  EXPECT_EQ(runs, 0);
  gate.Open();
  second.Await();
}

TEST(Work, MayBeClosedWhileItRuns) {
  for (int i = 0; i < kRepetitions; ++i) {
    Signal entered;
    Signal leave;
    Signal left;
    Function run = [&](PTP_CALLBACK_INSTANCE) {
      entered.Set();
      leave.Await();
      left.Set();
    };
    // The group alone still knows when the callback has returned.
    const UniqueCleanupGroup group(CreateThreadpoolCleanupGroup());
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackCleanupGroup(&environment, group.get(), nullptr);
    UniqueWork work = NewWork(run, &environment);
    SubmitThreadpoolWork(work.get());
    entered.Await();
    work.reset();
    leave.Set();
    CloseThreadpoolCleanupGroupMembers(group.get(), false, nullptr);
    EXPECT_TRUE(left.IsSet());
  }
}

TEST(Work, WhoseThreadHasDisassociatedItselfIsNotWaitedFor) {
  Signal disassociated;
  Signal leave;
  Signal left;
  Function run = [&](PTP_CALLBACK_INSTANCE instance) {
    DisassociateCurrentThreadFromCallback(instance);
    disassociated.Set();
    leave.Await();
    left.Set();
  };
  const UniqueWork work = NewWork(run);
  SubmitThreadpoolWork(work.get());
  disassociated.Await();
  WaitForThreadpoolWorkCallbacks(work.get(), false);
  WaitForThreadpoolWorkCallbacks(work.get(), true);
  EXPECT_FALSE(left.IsSet());
  leave.Set();
  left.Await();
}

TEST(Work, CanWaitForItselfAndCloseItselfOnceItsThreadHasDisassociatedItself) {
  for (int i = 0; i < kRepetitions; ++i) {
    Signal done;
    UniqueWork work;
    Function run = [&](PTP_CALLBACK_INSTANCE instance) {
      DisassociateCurrentThreadFromCallback(instance);
      WaitForThreadpoolWorkCallbacks(work.get(), true);
      work.reset();
      done.Set();
    };
    work = NewWork(run);
    SubmitThreadpoolWork(work.get());
    done.Await();
  }
}

TEST(Work, IsStillWaitedForInTheOtherThreadsWhenOneHasDisassociatedItself) {
  for (int i = 0; i < kRepetitions; ++i) {
    Signal otherEntered;
    Signal leave;
    std::atomic<bool> otherLeft{false};
    std::atomic<int> runs{0};
    Signal done;
    PTP_WORK itself = nullptr;
    Function run = [&](PTP_CALLBACK_INSTANCE instance) {
      if (++runs == 1) {
        otherEntered.Await();
        DisassociateCurrentThreadFromCallback(instance);
        leave.Set();
        WaitForThreadpoolWorkCallbacks(itself, true);
        EXPECT_TRUE(otherLeft);
        done.Set();
      } else {
        otherEntered.Set();
        leave.Await();
        otherLeft = true;
      }
    };
    const UniqueWork work = NewWork(run);
    itself = work.get();
    SubmitThreadpoolWork(work.get());
    SubmitThreadpoolWork(work.get());
    done.Await();
    WaitForThreadpoolWorkCallbacks(work.get(), false);
  }
}

TEST(Pool, NeverRunsMoreCallbacksThanItsMaximum) {
  OneThread one;
  std::atomic<int> running{0};
  Function run = [&](PTP_CALLBACK_INSTANCE) {
    EXPECT_EQ(++running, 1);
    --running;
  };
  const UniqueWork work = NewWork(run, one.Environment());
  for (int i = 0; i < 1000; ++i) SubmitThreadpoolWork(work.get());
  WaitForThreadpoolWorkCallbacks(work.get(), false);
}

}  // namespace
