// The executor holds no lock while a client's code runs: every operation can be called from within callbacks of every
// kind, and from within what is released or destroyed. Where a lock is held, the thread stands still.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "tests/task/taskSupport.h"

namespace {

using namespace task;
using namespace std::chrono_literals;

// It must not come while a test runs: a timer that is due calls its function again.
constexpr TimerTaskExecutor::AbsoluteTime kFarAhead(std::chrono::hours(24 * 365 * 200));

// On tasks of its own; nothing of it needs a thread of the pool.
void DoAllButWait(TaskExecutor& executor) {
  const Signal signal;
  std::atomic<int> released{0};
  auto timer = executor.create([] {});
  auto wait = executor.create(signal.Handle(), [] {});
  auto work = executor.create([](void*, void*) {});
  executor.setRelative(timer, 1h, 0ns);
  executor.setAbsolute(timer, kFarAhead);
  executor.cancel(timer);
  executor.start(wait);
  executor.stop(wait);
  executor.start(wait);
  executor.submit(work, Counting(released), Counting(released));
  executor.close(std::move(timer));
  executor.close(std::move(wait));
  executor.close(std::exchange(work, nullptr));
  EXPECT_EQ(released, 2);
}

void DoEverything(TaskExecutor& executor) {
  DoAllButWait(executor);
  const Signal signal;
  const auto timer = executor.create([] {});
  const auto wait = executor.create(signal.Handle(), [] {});
  std::atomic<int> runs{0};
  const auto work = executor.create([&](void*, void*) { ++runs; });
  executor.setRelative(timer, 0ns, 0ns);
  executor.submit(work, {}, {});
  executor.waitForCallbacks(timer);
  executor.waitForCallbacks(wait);
  executor.waitForCallbacks(work);
  EXPECT_EQ(runs, 1);
  executor.close(timer);
  executor.close(wait);
  executor.close(work);
}

TEST(WithinATimersCallback, EverythingCanBeDone) {
  Executor executor;
  Signal done;
  std::shared_ptr<WtpTimerTaskContext> timer;
  timer = executor->create([&] {
    DoEverything(*executor);
    executor->setAbsolute(timer, kFarAhead);
    executor->setRelative(timer, 1h, 1ms);
    executor->cancel(timer);
    executor->close(timer);
    done.Set();
  });
  executor->setRelative(timer, 0ns, 0ns);
  done.Await();
}

TEST(WithinAWaitsCallback, EverythingCanBeDone) {
  Executor executor;
  const UniqueEvent signal(CreateEventW(nullptr, false, true, nullptr));
  Signal done;
  std::shared_ptr<WtpWaitTaskContext> wait;
  wait = executor->create(signal.get(), [&] {
    DoEverything(*executor);
    executor->start(wait);
    executor->stop(wait);
    executor->start(wait);
    executor->close(wait);
    done.Set();
  });
  executor->start(wait);
  done.Await();
}

TEST(WithinAWorksCallback, EverythingCanBeDone) {
  std::atomic<int> runs{0};
  std::atomic<int> released{0};
  Executor executor;
  Signal done;
  std::shared_ptr<WtpWorkTaskContext> work;
  work = executor->create([&](void*, void*) {
    if (++runs != 1) return;
    DoEverything(*executor);
    executor->submit(work, {}, Counting(released));
    executor->close(work);
    done.Set();
  });
  executor->submit(work, {}, {});
  done.Await();
}

// Uses the executor when it goes, as what a client's function or argument keeps may do.
struct Keepsake {
  Keepsake(TaskExecutor& executor, std::atomic<int>& gone) : executor_(executor), gone_(gone) {}
  Keepsake(const Keepsake&) = delete;
  Keepsake& operator=(const Keepsake&) = delete;
  ~Keepsake() {
    DoAllButWait(executor_);
    ++gone_;
  }
  static OwnedArgument Argument(TaskExecutor& executor, std::atomic<int>& gone) {
    return {new Keepsake(executor, gone), [](void* keepsake) { delete static_cast<Keepsake*>(keepsake); }};
  }

 private:
  TaskExecutor& executor_;
  std::atomic<int>& gone_;
};

TEST(WithinTheReleaseOfAnArgument, TheExecutorCanBeUsed) {
  std::atomic<int> gone{0};
  Executor executor(true);
  Signal entered;
  Signal leave;
  const auto gate = executor->create([&](void*, void*) {
    entered.Set();
    leave.Await();
  });
  executor->submit(gate, Keepsake::Argument(*executor, gone), Keepsake::Argument(*executor, gone));
  entered.Await();
  auto dropped = executor->create([](void*, void*) { ADD_FAILURE(); });
  executor->submit(dropped, Keepsake::Argument(*executor, gone), {});
  executor->close(std::exchange(dropped, nullptr));
  EXPECT_EQ(gone, 1) << "its callback never ran";
  leave.Set();
  executor->waitForCallbacks(gate);
  EXPECT_EQ(gone, 3);
}

TEST(WithinTheEndOfAFunction, TheExecutorCanBeUsed) {
  std::atomic<int> gone{0};
  Executor executor;
  auto outside = executor->create([keeps = std::make_shared<Keepsake>(*executor, gone)](void*, void*) {});
  executor->close(std::exchange(outside, nullptr));
  EXPECT_EQ(gone, 1);

  auto letGo = executor->create([keeps = std::make_shared<Keepsake>(*executor, gone)] {});
  executor->close(std::exchange(letGo, nullptr));
  EXPECT_EQ(gone, 2);

  Signal ready;
  std::shared_ptr<WtpWorkTaskContext> within;
  within = executor->create([&, keeps = std::make_shared<Keepsake>(*executor, gone)](void*, void*) {
    ready.Await();
    executor->close(std::exchange(within, nullptr));
  });
  executor->submit(within, {}, {});
  ready.Set();
  while (gone != 3) std::this_thread::yield();
}

}  // namespace
