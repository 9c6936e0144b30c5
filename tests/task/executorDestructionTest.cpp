#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "lib/task/waitTask.h"
#include "lib/task/workTask.h"
#include "tests/task/taskSupport.h"

namespace {

using namespace task;
using namespace std::chrono_literals;

TEST(ExecutorDestruction, EndsTheTasksThatNobodyHolds) {
  for (int i = 0; i < kRepetitions; ++i) {
    Signal signal;
    std::atomic<int> functionsEnded{0};
    Executor executor;
    const auto armed = executor->create(signal.Handle(), [life = Life(functionsEnded)] {});
    executor->start(armed);
    executor->setRelative(executor->create([life = Life(functionsEnded)] {}), 1h, 0ns);
    executor->submit(executor->create([life = Life(functionsEnded)](void*, void*) {}), {}, {});
    const std::weak_ptr<WtpWaitTaskContext> seen = armed;
    std::thread holder([held = armed]() mutable { held.reset(); });
    const_cast<std::shared_ptr<WtpWaitTaskContext>&>(armed).reset();
    executor.Destroy();
    EXPECT_EQ(functionsEnded, 3);
    EXPECT_TRUE(seen.expired());
    holder.join();
  }
}

TEST(ExecutorDestruction, WaitsUntilClientsLetGoOfTheirTasks) {
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> held{3};
    Signal signal;
    Executor executor;
    auto timer = executor->create([] {});
    auto wait = executor->create(signal.Handle(), [] {});
    auto work = executor->create([](void*, void*) {});
    executor->setRelative(timer, 0ns, 1ms);
    executor->start(wait);
    executor->submit(work, {}, {});
    std::thread client(
        [&, keptTimer = std::move(timer), keptWait = std::move(wait), keptWork = std::move(work)]() mutable {
          signal.Set();
          --held;
          keptTimer.reset();
          --held;
          keptWait.reset();
          --held;
          keptWork.reset();
        });
    executor.Destroy();
    EXPECT_EQ(held, 0);
    client.join();
  }
}

TEST(ExecutorDestruction, DoesNotWaitForATaskThatWasClosedAndIsStillHeld) {
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    auto executor = std::make_unique<Executor>();
    auto timer = (*executor)->create([life = Life(functionsEnded)] {});
    (*executor)->close(timer);
    executor.reset();
    EXPECT_EQ(functionsEnded, 0);
    timer.reset();
    EXPECT_EQ(functionsEnded, 1);
  }
}

TEST(ExecutorDestruction, LetsATaskBeClosedMeanwhile) {
  for (int i = 0; i < kRepetitions; ++i) {
    Executor executor;
    auto task = CreateWorkTask<void(int)>(*executor, [](int) {});
    task.submit(1);
    std::thread client([closed = std::move(task)]() mutable { closed = {}; });
    executor.Destroy();
    client.join();
  }
}

TEST(ExecutorDestruction, LetsATaskGoInItsOwnCallback) {
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<int> functionsEnded{0};
    Executor executor;
    Signal entered;
    Signal destroying;
    std::shared_ptr<WtpWorkTaskContext> work;
    work = executor->create([&, life = Life(functionsEnded)](void*, void*) {
      entered.Set();
      destroying.Await();
      work.reset();
    });
    executor->submit(work, {}, {});
    entered.Await();
    destroying.Set();
    executor.Destroy();
    while (functionsEnded == 0) std::this_thread::yield();
  }
}

TEST(ExecutorDestruction, WaitsForRunningCallbacks) {
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<bool> left{false};
    Executor executor;
    Signal entered;
    Signal leave;
    executor->submit(executor->create([&](void*, void*) {
      entered.Set();
      leave.Await();
      left = true;
    }),
                     {}, {});
    entered.Await();
    std::thread opener([&] { leave.Set(); });
    executor.Destroy();
    EXPECT_TRUE(left);
    opener.join();
  }
}

// Others may hold the executor, as who is about to connect, and destroy their tasks when the group has gone.
TEST(ExecutorShutDown, EndsTheTasksOfAnExecutorThatIsStillHeld) {
  for (int i = 0; i < kRepetitions; ++i) {
    const Signal signal;
    std::atomic<int> functionsEnded{0};
    std::optional<Executor> executor(std::in_place);
    const auto held = executor->Share();
    auto wait = std::make_unique<WaitTask>(*held, signal.Handle(), [life = Life(functionsEnded)] {});
    wait->start();
    executor->ShutDown();
    EXPECT_EQ(functionsEnded, 1);
    executor.reset();
    wait->start();
    wait.reset();
  }
}

TEST(ExecutorShutDown, WaitsUntilClientsLetGoOfTheirTasks) {
  for (int i = 0; i < kRepetitions; ++i) {
    std::atomic<bool> gone{false};
    Executor executor;
    const auto held = executor.Share();
    auto task = executor->create([](void*, void*) {});
    executor->submit(task, {}, {});
    std::thread client([&, kept = std::move(task)]() mutable {
      gone = true;
      kept.reset();
    });
    executor.ShutDown();
    EXPECT_TRUE(gone);
    client.join();
  }
}

TEST(ExecutorShutDown, LeavesAnExecutorWhoseNewTasksNeverFire) {
  std::atomic<int> fired{0};
  std::atomic<int> released{0};
  std::optional<Executor> executor(std::in_place);
  const auto held = executor->Share();
  executor->ShutDown();
  executor->ShutDown();
  executor.reset();
  const Signal signal;
  signal.Set();
  const auto timer = held->create([&] { ++fired; });
  const auto wait = held->create(signal.Handle(), [&] { ++fired; });
  auto work = held->create([&](void*, void*) { ++fired; });
  held->setRelative(timer, 0ns, 1ms);
  held->start(wait);
  held->submit(work, Counting(released), {});
  held->waitForCallbacks(timer);
  held->waitForCallbacks(wait);
  held->waitForCallbacks(work);
  held->close(timer);
  held->close(std::move(work));
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(released, 1);
}

}  // namespace
