// What the executor asks of the pool, step by step.
#include <gtest/gtest.h>

#include <vector>

#include "lib/task/windowsThreadPoolExecutor.h"
#include "platform/raii.h"
#include "tests/streams/steppedPool.h"

namespace streams {
namespace {

using namespace quill::task;
using namespace std::chrono_literals;

constexpr std::uint32_t kWindow = 25;

class TaskSteps : public testing::Test {
 public:
  ~TaskSteps() override {
    executor.reset();
    EXPECT_EQ(pool::Objects(), 0u);
  }
  [[nodiscard]] pool::Timer SetRelative(std::chrono::nanoseconds delay, std::chrono::nanoseconds period) const {
    executor->setRelative(timer, delay, period);
    return pool::TimerSet().value();
  }
  static platform::UniqueEvent NewEvent() {
    return platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr));
  }

  std::shared_ptr<TaskExecutor> executor = CreateWindowsThreadPoolExecutor(nullptr, kWindow);
  int runs = 0;
  std::shared_ptr<WtpTimerTaskContext> timer = executor->create([this] { ++runs; });
  const platform::UniqueEvent event = NewEvent();
  std::shared_ptr<WtpWaitTaskContext> wait = executor->create(event.get(), [this] { ++runs; });

 protected:
  // Clients that hold a task keep the executor waiting.
  void TearDown() override {
    timer.reset();
    wait.reset();
  }
};

TEST_F(TaskSteps, RoundADelayUpToUnitsOf100Nanoseconds) {
  EXPECT_EQ(SetRelative(0ns, 0ns).due, 0) << "at once";
  EXPECT_EQ(SetRelative(1ns, 0ns).due, -1) << "never to zero";
  EXPECT_EQ(SetRelative(100ns, 0ns).due, -1);
  EXPECT_EQ(SetRelative(101ns, 0ns).due, -2);
  EXPECT_EQ(SetRelative(10s, 0ns).due, -100'000'000);
}

TEST_F(TaskSteps, RoundAPeriodDownToMilliseconds) {
  EXPECT_EQ(SetRelative(0ns, 999'999ns).period, 0u) << "once";
  EXPECT_EQ(SetRelative(0ns, 1'000'000ns).period, 1u);
  EXPECT_EQ(SetRelative(0ns, 1'999'999ns).period, 1u);
}

TEST_F(TaskSteps, CountAnAbsoluteTimeFrom1601) {
  executor->setAbsolute(timer, {});
  EXPECT_EQ(pool::TimerSet().value().due, 0x19DB1DED53E8000);
  EXPECT_EQ(pool::TimerSet().value().period, 0u);
  executor->setAbsolute(timer, TimerTaskExecutor::AbsoluteTime(TimerTaskExecutor::AbsoluteTime::duration(7)));
  EXPECT_EQ(pool::TimerSet().value().due, 0x19DB1DED53E8007);
}

TEST_F(TaskSteps, LetATimerBeAsLateAsTheExecutorSays) {
  EXPECT_EQ(SetRelative(1s, 0ns).window, kWindow);
  executor->setAbsolute(timer, {});
  EXPECT_EQ(pool::TimerSet().value().window, kWindow);
}

TEST_F(TaskSteps, CancelATimerButNotItsCallbackThatIsQueued) {
  EXPECT_EQ(SetRelative(1s, 0ns).due, -10'000'000);
  executor->cancel(timer);
  EXPECT_FALSE(pool::TimerSet());

  EXPECT_EQ(SetRelative(1s, 0ns).due, -10'000'000);
  pool::Fire();
  executor->cancel(timer);
  executor->waitForCallbacks(timer);
  pool::RunAll();
  EXPECT_EQ(runs, 1);
}

TEST_F(TaskSteps, DoNotArmAWaitAgainThatHasNotFired) {
  executor->start(wait);
  platform::SetEvent(event.get());
  EXPECT_EQ(pool::Queued(), 1u);
  executor->start(wait);  // Its callback is queued, and has not run.
  platform::SetEvent(event.get());
  EXPECT_EQ(pool::Queued(), 1u);
  pool::RunAll();
  EXPECT_EQ(runs, 1);
  executor->start(wait);
  pool::RunAll();
  EXPECT_EQ(runs, 2) << "the second signal was left for it";
}

TEST_F(TaskSteps, RunNoFunctionOfAWaitThatIsStoppedAsItFires) {
  executor->start(wait);
  platform::SetEvent(event.get());
  EXPECT_EQ(pool::Queued(), 1u);
  executor->stop(wait);
  EXPECT_EQ(pool::Queued(), 1u) << "the callback is on its way";
  pool::RunAll();
  EXPECT_EQ(runs, 0);
}

TEST_F(TaskSteps, ArmAWaitAgainThatWasStoppedAfterItFired) {
  for (int fired = 1; fired <= 2; ++fired) {
    executor->start(wait);
    platform::SetEvent(event.get());
    pool::RunAll();
    EXPECT_EQ(runs, fired);
    executor->stop(wait);
  }
}

TEST_F(TaskSteps, StopAWaitBeforeItFires) {
  executor->start(wait);
  executor->stop(wait);
  platform::SetEvent(event.get());
  EXPECT_EQ(pool::Queued(), 0u);
}

TEST_F(TaskSteps, DropAWaitsQueuedCallbackOnlyWhenItIsNotArmed) {
  executor->start(wait);
  platform::SetEvent(event.get());
  EXPECT_EQ(pool::Queued(), 1u);
  executor->waitForCallbacks(wait);
  EXPECT_EQ(pool::Queued(), 1u);
  executor->stop(wait);
  executor->waitForCallbacks(wait);
  EXPECT_EQ(pool::Queued(), 0u);
}

TEST_F(TaskSteps, KeepAWorksQueuedCallbacksThatAreOnlyWaitedFor) {
  const auto work = executor->create([this](void*, void*) { ++runs; });
  executor->submit(work, {}, {});
  executor->waitForCallbacks(work);
  EXPECT_EQ(pool::Queued(), 1u);
  executor->close(work);
  EXPECT_EQ(pool::Queued(), 0u) << "closing drops them";
  EXPECT_EQ(runs, 0);
}

TEST_F(TaskSteps, QueueAnArgumentThatStandsInEitherPlace) {
  std::vector<std::pair<void*, void*>> seen;
  const auto work = executor->create([&](void* first, void* second) { seen.emplace_back(first, second); });
  int released = 0;
  const auto owned = [&] { return OwnedArgument(&released, [](void* count) { ++*static_cast<int*>(count); }); };
  executor->submit(work, owned(), {});
  executor->submit(work, {}, owned());
  pool::RunAll();
  EXPECT_EQ(seen, (std::vector<std::pair<void*, void*>>{{&released, nullptr}, {nullptr, &released}}));
  EXPECT_EQ(released, 2);
  executor->close(work);
}

}  // namespace
}  // namespace streams
