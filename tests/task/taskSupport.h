// What the tests of tasks share.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "lib/task/windowsThreadPoolExecutor.h"
#include "platform/raii.h"
#include "tests/support/lastingEvent.h"

namespace task {

using namespace platform;
using namespace quill::task;

// How often what may race is tried.
inline constexpr int kRepetitions = 1000;

using Signal = support::LastingEvent;

// An executor as the library makes it: with a cleanup group, whose members are waited for at the end. That also waits
// for callbacks that have closed their own tasks. `oneThread` keeps what stands behind a blocked callback queued.
class Executor {
 public:
  explicit Executor(bool oneThread = false) {
    InitializeThreadpoolEnvironment(&environment_);
    SetThreadpoolCallbackCleanupGroup(&environment_, group_.get(), nullptr);
    if (oneThread) {
      pool_.reset(CreateThreadpool(nullptr));
      SetThreadpoolThreadMaximum(pool_.get(), 1);
      SetThreadpoolCallbackPool(&environment_, pool_.get());
    }
    executor_ = CreateWindowsThreadPoolExecutor(&environment_, 0);
  }
  Executor(const Executor&) = delete;
  Executor& operator=(const Executor&) = delete;
  ~Executor() {
    Destroy();
    CloseThreadpoolCleanupGroupMembers(group_.get(), false, nullptr);
  }
  TaskExecutor* operator->() const { return executor_.get(); }
  TaskExecutor& operator*() const { return *executor_; }
  void Destroy() { executor_.reset(); }
  void ShutDown() { executor_->shutDown(); }
  [[nodiscard]] std::shared_ptr<TaskExecutor> Share() const { return executor_; }

 private:
  UniquePool pool_;
  UniqueCleanupGroup group_{CreateThreadpoolCleanupGroup()};
  TP_CALLBACK_ENVIRON environment_{};
  std::shared_ptr<WindowsThreadPoolExecutor> executor_;
};

// Keeps a thread of the executor in a callback, from here until it is opened. With one thread, all behind it is queued.
class Gate {
 public:
  explicit Gate(TaskExecutor& executor)
      : executor_(executor), work_(executor.create([this](void*, void*) {
          entered_.Set();
          leave_.Await();
        })) {
    executor_.submit(work_, {}, {});
    entered_.Await();
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() { Open(); }
  // Returns when the callback has.
  void Open() {
    leave_.Set();
    if (work_) executor_.close(std::exchange(work_, nullptr));
  }

 private:
  TaskExecutor& executor_;
  const Signal entered_;
  const Signal leave_;
  std::shared_ptr<WtpWorkTaskContext> work_;
};

// An event that whoever waits for it consumes.
class PulseEvent {
 public:
  [[nodiscard]] EventHandle Handle() const { return event_.get(); }
  // Sets it until a wait of the pool has taken it.
  void PulseUntilTaken() const {
    do SetEvent(event_.get());
    while (WaitForSingleObject(event_.get(), 0) == WAIT_OBJECT_0);
  }

 private:
  UniqueEvent event_{CreateEventW(nullptr, false, false, nullptr)};
};

// Tells when the callback of a wait is queued whose signal has been taken. The pool takes a signal a moment before it
// queues the callback, and one signal after the other: when it has taken the follower's, the callback is queued. Of a
// wait that is stopped or closed within that moment, Wine still runs the callback.
class Follower {
 public:
  explicit Follower(TaskExecutor& executor)
      : executor_(executor), wait_(executor.create(signal_.Handle(), [this] { ran_.Set(); })) {
    executor_.start(wait_);
  }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;
  // By then, no gate may stand in its way.
  ~Follower() {
    ran_.Await();
    executor_.close(wait_);
  }
  void AwaitItsTurn() const { signal_.PulseUntilTaken(); }

 private:
  TaskExecutor& executor_;
  const PulseEvent signal_;
  const Signal ran_;
  std::shared_ptr<WtpWaitTaskContext> wait_;
};

// Tells when it is destroyed: captured by a function, it tells of the function's end. Copies do not count.
class Life {
 public:
  explicit Life(std::atomic<int>& ended) : ended_(&ended, [](std::atomic<int>* count) { ++*count; }) {}

 private:
  std::shared_ptr<std::atomic<int>> ended_;
};

// An argument whose release is counted.
inline OwnedArgument Counting(std::atomic<int>& released) {
  return {&released, [](void* count) { ++*static_cast<std::atomic<int>*>(count); }};
}

}  // namespace task
