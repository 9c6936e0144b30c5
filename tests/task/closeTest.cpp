// Closing a task, wherever it stands and whoever does it.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <utility>

#include "tests/task/taskSupport.h"

namespace {

using namespace task;
using namespace std::chrono_literals;

TEST(CloseFromWithin, LetsATimersFunctionRunOnAndThenDestroysIt) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Signal returning;
    std::shared_ptr<WtpTimerTaskContext> timer;
    Signal ready;
    timer = executor->create([&, life = Life(functionsEnded)] {
      ready.Await();
      executor->close(timer);
      EXPECT_EQ(timer->poolObject, nullptr);
      EXPECT_EQ(timer->context, nullptr);
      EXPECT_EQ(functionsEnded, 0);
      timer.reset();
      returning.Set();
    });
    executor->setRelative(timer, 0ns, 0ns);
    ready.Set();
    returning.Await();
    while (functionsEnded == 0) std::this_thread::yield();
  }
}

TEST(CloseFromWithin, LetsAWaitsFunctionRunOnAndThenDestroysIt) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    const UniqueEvent signal(CreateEventW(nullptr, false, true, nullptr));
    Signal returning;
    Signal ready;
    std::shared_ptr<WtpWaitTaskContext> wait;
    wait = executor->create(signal.get(), [&, life = Life(functionsEnded)] {
      ready.Await();
      executor->start(wait);  // Armed again, as the signal is consumed.
      executor->close(wait);
      EXPECT_EQ(functionsEnded, 0);
      wait.reset();
      returning.Set();
    });
    executor->start(wait);
    ready.Set();
    returning.Await();
    while (functionsEnded == 0) std::this_thread::yield();
  }
}

TEST(CloseFromWithin, LetsAWorksFunctionRunOnAndThenDestroysItWithItsQueue) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    std::atomic<int> released{0};
    Signal ready;
    std::atomic<int> runs{0};
    std::shared_ptr<WtpWorkTaskContext> work;
    work = executor->create([&, life = Life(functionsEnded)](void*, void*) {
      if (++runs != 1) return;
      ready.Await();
      executor->close(work);
      EXPECT_EQ(functionsEnded, 0);
      work.reset();
    });
    for (int submitted = 0; submitted < 3; ++submitted) executor->submit(work, {}, Counting(released));
    ready.Set();
    while (functionsEnded == 0 || released < 3) std::this_thread::yield();
    EXPECT_EQ(released, 3);
  }
}

TEST(CloseFromOutside, WaitsUntilTheRunningFunctionEnds) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Signal entered;
    Signal leave;
    std::atomic<bool> left{false};
    auto work = executor->create([&, life = Life(functionsEnded)](void*, void*) {
      entered.Set();
      leave.Await();
      left = true;
    });
    executor->submit(work, {}, {});
    entered.Await();
    std::thread opener([&] { leave.Set(); });
    executor->close(work);
    EXPECT_TRUE(left);
    EXPECT_EQ(functionsEnded, 0);  // It goes with the handle.
    opener.join();
    work.reset();
    EXPECT_EQ(functionsEnded, 1);
  }
}

// Tasks of each kind that have been told to run, for tests that hold of all of them.
template <class Function>
std::shared_ptr<WtpTimerTaskContext> RunningTimer(TaskExecutor& executor, Function function) {
  auto task = executor.create(std::function<void()>(std::move(function)));
  executor.setRelative(task, 0ns, 0ns);
  return task;
}
template <class Function>
std::shared_ptr<WtpWaitTaskContext> RunningWait(TaskExecutor& executor, EventHandle signalled, Function function) {
  auto task = executor.create(signalled, std::function<void()>(std::move(function)));
  executor.start(task);
  return task;
}

// A callback that stays until it is let go.
struct Stay {
  Signal entered;
  Signal leave;
  std::atomic<bool> left{false};

  [[nodiscard]] auto Function(std::atomic<int>& functionsEnded) {
    return [this, life = Life(functionsEnded)] {
      entered.Set();
      leave.Await();
      left = true;
    };
  }
};

template <class Task>
void CloseFromAThread(TaskExecutor& executor, std::shared_ptr<Task> task, Stay& stay,
                      const std::atomic<int>& functionsEnded) {
  stay.entered.Await();
  std::thread opener([&] { stay.leave.Set(); });
  executor.close(task);
  EXPECT_TRUE(stay.left);
  EXPECT_EQ(functionsEnded, 0);
  opener.join();
  task.reset();
  EXPECT_EQ(functionsEnded, 1);
}

TEST(CloseFromOutside, WaitsForATimersFunction) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Stay stay;
    CloseFromAThread(*executor, RunningTimer(*executor, stay.Function(functionsEnded)), stay, functionsEnded);
  }
}

TEST(CloseFromOutside, WaitsForAWaitsFunction) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Stay stay;
    Signal signal;
    signal.Set();
    CloseFromAThread(*executor, RunningWait(*executor, signal.Handle(), stay.Function(functionsEnded)), stay,
                     functionsEnded);
  }
}

template <class Task>
void CloseFromAnotherCallback(TaskExecutor& executor, std::shared_ptr<Task> task, Stay& stay) {
  stay.entered.Await();
  const auto closing = executor.create([&](void*, void*) {
    stay.leave.Set();
    executor.close(std::move(task));
    EXPECT_TRUE(stay.left);
  });
  executor.submit(closing, {}, {});
  executor.waitForCallbacks(closing);
  EXPECT_TRUE(stay.left);
  executor.close(closing);
}

TEST(CloseFromAnotherCallback, WaitsForATimersFunction) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Stay stay;
    CloseFromAnotherCallback(*executor, RunningTimer(*executor, stay.Function(functionsEnded)), stay);
    EXPECT_EQ(functionsEnded, 1);
  }
}

TEST(CloseFromAnotherCallback, WaitsForAWaitsFunction) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Stay stay;
    Signal signal;
    signal.Set();
    CloseFromAnotherCallback(*executor, RunningWait(*executor, signal.Handle(), stay.Function(functionsEnded)), stay);
    EXPECT_EQ(functionsEnded, 1);
  }
}

TEST(CloseFromAnotherCallback, WaitsUntilTheRunningFunctionEnds) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    Signal entered;
    Signal leave;
    std::atomic<bool> left{false};
    auto closed = executor->create([&](void*, void*) {
      entered.Set();
      leave.Await();
      left = true;
    });
    const auto closing = executor->create([&](void*, void*) {
      leave.Set();
      executor->close(std::move(closed));
      EXPECT_TRUE(left);
    });
    executor->submit(closed, {}, {});
    entered.Await();
    executor->submit(closing, {}, {});
    executor->waitForCallbacks(closing);
    EXPECT_TRUE(left);
    executor->close(closing);
  }
}

TEST(CloseWhileArmed, KeepsAWaitFromEverFiring) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    Signal signal;
    std::atomic<int> runs{0};
    auto wait = executor->create(signal.Handle(), [&] { ++runs; });
    executor->start(wait);
    executor->close(std::move(wait));
    signal.Set();
    EXPECT_EQ(runs, 0);
  }
}

TEST(CloseWhileArmed, KeepsATimerFromEverFiring) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> runs{0};
    auto timer = executor->create([&] { ++runs; });
    executor->setRelative(timer, 1h, 1ms);
    executor->close(std::move(timer));
    EXPECT_EQ(runs, 0);
  }
}

TEST(CloseWhileArmed, RacesWithTheSignal) {
  Executor executor;
  for (int i = 0; i < kRepetitions; ++i) {
    Signal signal;
    std::atomic<int> inside{0};
    auto wait = executor->create(signal.Handle(), [&] {
      ++inside;
      --inside;
    });
    executor->start(wait);
    std::thread signaller([&] { signal.Set(); });
    executor->close(std::move(wait));
    EXPECT_EQ(inside, 0);
    signaller.join();
  }
}

TEST(CloseWhileQueued, DropsTheCallbacksAndReleasesTheirArgumentsOnce) {
  Executor executor(true);
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> runs{0};
    std::atomic<int> released{0};
    Gate gate(*executor);
    auto work = executor->create([&](void*, void*) { ++runs; });
    for (int submitted = 0; submitted < 3; ++submitted) executor->submit(work, Counting(released), Counting(released));
    executor->close(work);
    EXPECT_EQ(released, 0);  // They go with the handle.
    work.reset();
    EXPECT_EQ(released, 6);
    gate.Open();
    EXPECT_EQ(runs, 0);
  }
}

TEST(CloseWhileQueued, DropsAWaitsCallback) {
  Executor executor(true);
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> runs{0};
    Gate gate(*executor);
    const PulseEvent signal;
    auto wait = executor->create(signal.Handle(), [&] { ++runs; });
    executor->start(wait);
    Follower follower(*executor);
    signal.PulseUntilTaken();
    follower.AwaitItsTurn();
    executor->close(std::move(wait));
    gate.Open();
    EXPECT_EQ(runs, 0);
  }
}

TEST(CloseWhileQueued, DropsATimersCallback) {
  Executor executor(true);
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> runs{0};
    Gate gate(*executor);
    auto timer = executor->create([&] { ++runs; });
    executor->setRelative(timer, 0ns, 0ns);
    executor->close(std::move(timer));
    gate.Open();
    EXPECT_EQ(runs, 0);
  }
}

}  // namespace
