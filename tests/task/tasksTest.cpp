// What each kind of task does between its creation and its end.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "lib/task/workTask.h"
#include "tests/support/process.h"
#include "tests/task/taskSupport.h"

namespace {

using namespace task;
using namespace std::chrono_literals;

TEST(Task, DoesNothingUntilItIsToldTo) {
  Executor executor;
  Signal signal;
  signal.Set();
  std::atomic<int> runs{0};
  const auto timer = executor->create([&] { ++runs; });
  const auto wait = executor->create(signal.Handle(), [&] { ++runs; });
  const auto work = executor->create([&](void*, void*) { ++runs; });
  executor->waitForCallbacks(timer);
  executor->waitForCallbacks(wait);
  executor->waitForCallbacks(work);
  EXPECT_EQ(runs, 0);
}

TEST(Task, StaysOpenWhenItsCreatorLetsGoOfIt) {
  Executor executor;
  Signal signal;
  Signal ran;
  executor->start(executor->create(signal.Handle(), [&] { ran.Set(); }));
  signal.Set();
  ran.Await();
}

TEST(Task, CanBeMadeFromEachRole) {
  Executor executor;
  TimerTaskExecutor& timers = *executor;
  WaitTaskExecutor& waits = *executor;
  WorkTaskExecutor& works = *executor;
  Signal timerRan;
  Signal waitRan;
  Signal workRan;
  timers.setRelative(timers.create([&] { timerRan.Set(); }), 0ns, 0ns);
  waits.start(waits.create(timerRan.Handle(), [&] { waitRan.Set(); }));
  works.submit(works.create([&](void*, void*) { workRan.Set(); }), {}, {});
  timerRan.Await();
  waitRan.Await();
  workRan.Await();
}

TEST(TimerTask, FiresAtOnceWithoutADelay) {
  Executor executor;
  Signal ran;
  const auto timer = executor->create([&] { ran.Set(); });
  executor->setRelative(timer, 0ns, 0ns);
  ran.Await();
}

TEST(TimerTask, FiresAgainAtEachPeriodUntilItIsCancelled) {
  Executor executor;
  std::atomic<int> runs{0};
  Signal three;
  const auto timer = executor->create([&] {
    if (++runs == 3) three.Set();
  });
  executor->setRelative(timer, 1ns, 1ms);
  three.Await();
  executor->cancel(timer);
  executor->waitForCallbacks(timer);
  const int seen = runs;
  Signal later;
  const auto other = executor->create([&] { later.Set(); });
  executor->setRelative(other, 10ms, 0ns);
  later.Await();
  EXPECT_EQ(runs, seen);
}

TEST(TimerTask, FiresAtAnAbsoluteTime) {
  Executor executor;
  Signal ran;
  const auto timer = executor->create([&] { ran.Set(); });
  const auto due =
      std::chrono::time_point_cast<TimerTaskExecutor::AbsoluteTime::duration>(std::chrono::system_clock::now() + 40ms);
  executor->setAbsolute(timer, due);
  ran.Await();
  // The system's clocks tick differently, by as much as 16 ms.
  EXPECT_GE(std::chrono::system_clock::now(), due - 20ms);
}

TEST(WaitTask, FiresOncePerStart) {
  Executor executor;
  Signal signal;
  signal.Set();
  std::atomic<int> runs{0};
  const UniqueEvent ran(CreateEventW(nullptr, false, false, nullptr));
  const auto wait = executor->create(signal.Handle(), [&] {
    ++runs;
    SetEvent(ran.get());
  });
  for (int i = 1; i <= 100; ++i) {
    executor->start(wait);
    WaitForSingleObject(ran.get(), INFINITE);
    executor->stop(wait);  // It has fired: nothing to stop.
    executor->waitForCallbacks(wait);
    ASSERT_EQ(runs, i);
  }
}

TEST(WaitTask, IsNotStartedTwice) {
  Executor executor;
  const UniqueEvent signal(CreateEventW(nullptr, false, false, nullptr));
  const UniqueEvent ran(CreateEventW(nullptr, false, false, nullptr));
  std::atomic<int> runs{0};
  const auto wait = executor->create(signal.get(), [&] {
    ++runs;
    SetEvent(ran.get());
  });
  executor->start(wait);
  executor->start(wait);
  SetEvent(signal.get());
  WaitForSingleObject(ran.get(), INFINITE);
  executor->waitForCallbacks(wait);
  EXPECT_EQ(runs, 1);
  SetEvent(signal.get());
  executor->waitForCallbacks(wait);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(WaitForSingleObject(signal.get(), 0), WAIT_OBJECT_0);
}

TEST(WaitTask, StoppedAsItFiresRunsNoFunction) {
  Executor executor(true);
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> runs{0};
    Gate gate(*executor);
    const PulseEvent signal;
    const auto wait = executor->create(signal.Handle(), [&] { ++runs; });
    executor->start(wait);
    Follower follower(*executor);
    signal.PulseUntilTaken();
    follower.AwaitItsTurn();
    executor->stop(wait);
    gate.Open();
    executor->waitForCallbacks(wait);
    ASSERT_EQ(runs, 0);
    executor->close(wait);
  }
}

TEST(WaitTask, CanBeStartedByItsOwnCallback) {
  Executor executor;
  const UniqueEvent signal(CreateEventW(nullptr, false, false, nullptr));
  const UniqueEvent ran(CreateEventW(nullptr, false, false, nullptr));
  std::shared_ptr<WtpWaitTaskContext> wait;
  wait = executor->create(signal.get(), [&] {
    executor->start(wait);
    SetEvent(ran.get());
  });
  executor->start(wait);
  for (int i = 0; i < 500; ++i) {
    SetEvent(signal.get());
    WaitForSingleObject(ran.get(), INFINITE);
  }
  executor->close(wait);
}

TEST(WorkTask, TakesArgumentsInTheOrderOfSubmissionAndReleasesTheSecondFirst) {
  Executor executor(true);
  std::vector<int> seen;
  std::vector<int> numbers{0, 1, 2, 3};
  static std::vector<int>* released = nullptr;
  std::vector<int> releases;
  released = &releases;
  const auto owned = [](int& number) {
    return OwnedArgument(&number, [](void* pointer) { released->push_back(*static_cast<int*>(pointer)); });
  };
  const auto work = executor->create([&](void* first, void* second) {
    seen.push_back(*static_cast<int*>(first));
    seen.push_back(*static_cast<int*>(second));
  });
  executor->submit(work, owned(numbers[0]), owned(numbers[1]));
  executor->submit(work, owned(numbers[2]), owned(numbers[3]));
  executor->waitForCallbacks(work);
  EXPECT_EQ(seen, (std::vector{0, 1, 2, 3}));
  EXPECT_EQ(releases, (std::vector{1, 0, 3, 2}));
}

TEST(WorkTask, SubmittedWithoutArgumentsTakesWhatStandsFirst) {
  Executor executor(true);
  Gate gate(*executor);
  std::vector<void*> seen;
  std::atomic<int> released{0};
  const auto work = executor->create([&](void* first, void* second) {
    EXPECT_EQ(first, nullptr);
    seen.push_back(second);
  });
  executor->submit(work, {}, {});
  executor->submit(work, {}, Counting(released));
  gate.Open();
  executor->waitForCallbacks(work);
  EXPECT_EQ(seen, (std::vector<void*>{&released, nullptr}));
  EXPECT_EQ(released, 1);
}

TEST(WorkTask, GivesOneCallbackForEachSubmission) {
  Executor executor;
  std::atomic<int> runs{0};
  std::atomic<int> released{0};
  const auto work = executor->create([&](void*, void*) { ++runs; });
  for (int i = 0; i < 10'000; ++i) executor->submit(work, {}, Counting(released));
  executor->waitForCallbacks(work);
  EXPECT_EQ(runs, 10'000);
  EXPECT_EQ(released, 10'000);
}

struct CannotBeDefaulted {
  explicit CannotBeDefaulted(std::shared_ptr<int> number) : value(std::move(number)) {}
  std::shared_ptr<int> value;
};

TEST(TypedWorkTask, HandsItsArgumentOver) {
  Executor executor;
  auto number = std::make_shared<int>(7);
  const std::weak_ptr<int> alive = number;
  std::atomic<int> seen{0};
  std::atomic<long> holders{0};
  Signal ran;
  auto task = CreateWorkTask<void(CannotBeDefaulted)>(*executor, [&](CannotBeDefaulted argument) {
    seen = *argument.value;
    holders = argument.value.use_count();
    argument.value.reset();
    ran.Set();
  });
  task.submit(CannotBeDefaulted(std::move(number)));
  ran.Await();
  task = {};
  EXPECT_EQ(seen, 7);
  EXPECT_EQ(holders, 1);  // Moved out, not copied.
  EXPECT_TRUE(alive.expired());
}

TEST(TypedWorkTask, MayBeDestroyedFromWithinItsOwnCallback) {
  Executor executor;
  for (int i = 0; i < 1000; ++i) {
    std::atomic<int> functionsEnded{0};
    Signal ready;
    WorkTask<void(int)> task;
    task = CreateWorkTask<void(int)>(*executor, [&, life = Life(functionsEnded)](int) {
      ready.Await();
      task = {};
    });
    task.submit(1);
    ready.Set();
    while (functionsEnded == 0) std::this_thread::yield();
  }
}

TEST(TypedWorkTask, WhoseTaskIsGoneSubmitsNothing) {
  WorkTask<void(std::shared_ptr<int>)> task;
  const auto number = std::make_shared<int>(1);
  task.submit(number);
  {
    Executor executor;
    task = CreateWorkTask<void(std::shared_ptr<int>)>(*executor, [](const std::shared_ptr<int>&) {});
  }
  task.submit(number);
  EXPECT_EQ(number.use_count(), 1);
}

CHILD_BODY(RunsAnEmptyFunction) {
  Executor executor;
  const auto timer = executor->create(std::function<void()>());
  support::Say("setting");
  executor->setRelative(timer, 0ns, 0ns);
  Signal().Await();
  return 0;
}

TEST(TimerTask, WithAnEmptyFunctionEndsTheProcessWhenItFires) {
  support::Process child = support::StartChild("RunsAnEmptyFunction");
  ASSERT_EQ(child.Hear(), "setting");
  EXPECT_NE(child.Wait(), 0);
}

}  // namespace
